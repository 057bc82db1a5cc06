#include "foundation/JSON.h"
