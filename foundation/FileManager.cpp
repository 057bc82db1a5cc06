#include "foundation/FileManager.h"
