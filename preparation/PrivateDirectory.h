#pragma once

#include <string>

#include "foundation/base/Result.h"

/// Folders below the temporary folder, which other users may share and whose names they can guess.
namespace PrivateDirectory {

/// Makes the folder and its missing parents. Fails if the folder, or a parent of it below the
/// temporary folder, is a link or belongs to another user.
foundation::Result<> make(const std::string& path);

}  // namespace PrivateDirectory
