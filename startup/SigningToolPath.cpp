#include "startup/SigningToolPath.h"

#include <cstdlib>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "foundation/process/ProcessInfo.h"
#include "startup/HostTools.h"

namespace {

std::string ownToolsFolder() {
  using foundation::deletingLastPathComponent;
  const std::string prefix = deletingLastPathComponent(
      deletingLastPathComponent(foundation::ProcessInfo::executablePath()));
  return foundation::appendingPathComponent(prefix, "libexec/sendoff");
}

}  // namespace

std::string pathWithSigningTools(const std::optional<std::string>& path,
                                 const std::filesystem::path& tools) {
  const std::string before = path && !path->empty() ? *path : "/usr/bin:/bin";
  return before + ":" + tools.string();
}

void appendSigningToolsToPath() {
  if constexpr (!sendoff::kBringsSigningTools) return;
  const std::string tools = ownToolsFolder();
  if (!foundation::FileManager::isDirectoryAtPath(tools)) return;
  const std::string path =
      pathWithSigningTools(foundation::ProcessInfo::environmentValue("PATH"), tools);
  ::setenv("PATH", path.c_str(), 1);
}
