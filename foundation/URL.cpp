#include "foundation/URL.h"
