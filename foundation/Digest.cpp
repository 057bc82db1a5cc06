#include "foundation/Digest.h"
