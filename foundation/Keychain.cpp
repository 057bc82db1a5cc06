#include "foundation/Keychain.h"
