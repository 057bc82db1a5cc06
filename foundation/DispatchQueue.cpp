#include "foundation/DispatchQueue.h"
