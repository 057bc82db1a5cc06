#include "foundation/Path.h"
