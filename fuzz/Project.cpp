// Xcode project files, parsed and walked.
#include "QVTIDEFoundation/QVTIDEProject.h"
#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::MemoryFile file(fuzz::bytesOf(data, size));
  const auto project = QVTIDEProject::initWithProjectPath(file.path());
  if (!project) return 0;
  fuzz::ignore(project->description());
  if (project->mainGroup()) {
    project->mainGroup()->enumerateTree(
        [](const QVTIDESourceTreeObject&, int depth) { fuzz::require(depth <= 512); });
  }
  const foundation::Dictionary environment{{"SOURCE_ROOT", "/src"}};
  for (const auto& [id, object] : project->filesDictionary()) {
    fuzz::ignore(object->absolutePathWithBuildEnvironmentForProject(&environment, *project));
  }
  for (const auto& target : project->targets()) fuzz::ignore(target->description());
  return 0;
}
