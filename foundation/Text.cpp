#include "foundation/Text.h"
