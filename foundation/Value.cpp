#include "foundation/Value.h"
