#pragma once

#include <string>

#include "foundation/Result.h"

/// Folders of a run below the temporary folder. Others may share that one and can guess the names.
namespace OwnFolder {

/// Makes the folder with its missing parents. Fails when it, or a parent of it that is below the
/// temporary folder, is a link or belongs to another user.
foundation::Result<> make(const std::string& path);

/// Removes the links below the folder that lead out of it, or nowhere: an archive that is unpacked
/// over an older one would be written through them.
foundation::Result<> removeLinksOutOf(const std::string& folder);

}  // namespace OwnFolder
