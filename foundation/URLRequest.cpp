#include "foundation/URLRequest.h"
