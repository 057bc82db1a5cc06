// Xcode project files, parsed and walked.
#include "QVTIDEFoundation/QVTIDEProject.h"
#include "fuzz/FuzzTarget.h"

void fuzz::readInput(foundation::Bytes input) {
  const fuzz::MemoryFile file(input);
  const auto project = QVTIDEProject::initWithProjectPath(file.path());
  if (!project) return;
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
}
