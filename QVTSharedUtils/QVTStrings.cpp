#include "QVTSharedUtils/QVTStrings.h"

#include "foundation/base/Error.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/Digest.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/UserFolders.h"
#include "foundation/process/ProcessInfo.h"

std::string QVTStrings::uniqueString() { return foundation::ProcessInfo::globallyUniqueString(); }

std::string QVTStrings::uniqueZipFilePath() {
  const auto folder = foundation::FileManager::temporaryDirectory();
  if (!folder) throw foundation::Exception(folder.error().localizedDescription());
  return foundation::appendingPathComponent(*folder, uniqueString()) + ".zip";
}

std::string QVTStrings::uniqueGZipFileName() {
  return foundation::appendingPathComponent(uniqueString(), "gz");
}

std::string QVTStrings::MD5HashForString(std::string_view text) {
  const std::string_view untilNul = text.substr(0, text.find('\0'));
  return foundation::lowercaseHex(foundation::md5(foundation::bytesOf(untilNul)));
}
