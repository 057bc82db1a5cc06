#include "foundation/PropertyList.h"
