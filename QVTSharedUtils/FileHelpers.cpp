#include "QVTSharedUtils/FileHelpers.h"

#include "foundation/file/FileManager.h"
#include "foundation/process/SystemLog.h"

bool deleteFile(const std::string& path) {
  const auto removed = foundation::FileManager::removeItemAtPath(path);
  if (!removed) {
    foundation::systemLog("Unable to delete due to error: %@",
                          removed.error().localizedDescription());
  }
  return removed.ok();
}
