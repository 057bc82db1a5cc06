#include "foundation/Error.h"
