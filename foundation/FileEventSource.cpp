#include "foundation/FileEventSource.h"
