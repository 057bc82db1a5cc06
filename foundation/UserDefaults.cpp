#include "foundation/UserDefaults.h"
