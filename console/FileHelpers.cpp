#include "console/FileHelpers.h"

#include "foundation/FileManager.h"
#include "foundation/SystemLog.h"

bool deleteFile(const std::string& path) {
  const auto removed = foundation::FileManager::removeItemAtPath(path);
  if (!removed) {
    foundation::systemLog("Unable to delete due to error: %@",
                          removed.error().localizedDescription());
  }
  return removed.ok();
}
