#include "foundation/Bundle.h"
