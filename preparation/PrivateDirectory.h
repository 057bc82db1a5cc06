#pragma once

#include <string>

#include "foundation/base/Result.h"

/// Folders of a run below the temporary folder. Others may share that one and can guess the names.
namespace PrivateDirectory {

/// Makes the folder with its missing parents. Fails when it, or a parent of it that is below the
/// temporary folder, is a link or belongs to another user.
foundation::Result<> make(const std::string& path);

}  // namespace PrivateDirectory
