#include "foundation/ChildProcess.h"
