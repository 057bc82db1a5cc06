#include "foundation/URLConnection.h"
