#include "foundation/Assertion.h"
