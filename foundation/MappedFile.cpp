#include "foundation/MappedFile.h"
