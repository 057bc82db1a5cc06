#include "foundation/RunLoop.h"
