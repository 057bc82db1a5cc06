#include "console/QVTStrings.h"

#include "foundation/Digest.h"
#include "foundation/Error.h"
#include "foundation/FileManager.h"
#include "foundation/Path.h"
#include "foundation/ProcessInfo.h"
#include "foundation/Text.h"
#include "foundation/UserFolders.h"

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
