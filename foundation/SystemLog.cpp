#include "foundation/SystemLog.h"
