#include "foundation/NotificationCenter.h"
