#include "foundation/Certificate.h"
