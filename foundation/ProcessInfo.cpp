#include "foundation/ProcessInfo.h"
