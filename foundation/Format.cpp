#include "foundation/Format.h"
