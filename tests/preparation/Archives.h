#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

/// A file to be packed: its path inside the archive and its content; "-> x" is a link to x.
struct PackedFile {
  std::string path;
  std::string content;
};

/// Packs the files with the real `zip`.
inline void pack(const std::filesystem::path& archive, const std::vector<PackedFile>& files) {
  const TemporaryFolder folder;
  for (const auto& [path, content] : files) {
    if (content.starts_with("-> ")) {
      std::filesystem::create_directories((folder / path).parent_path());
      std::filesystem::create_symlink(content.substr(3), folder / path);
    } else {
      folder.write(path, content);
    }
  }
  // `zip` adds an extension to names without one, so the archive gets its name afterwards.
  const std::filesystem::path packed = folder / "packed.zip";
  outputOf({"sh", "-c", "cd \"$1\" && zip -q --symlinks -r packed.zip . -x ./packed.zip", "sh",
            folder.path()});
  std::filesystem::create_directories(archive.parent_path());
  std::filesystem::copy_file(packed, archive, std::filesystem::copy_options::overwrite_existing);
}

/// An Info.plist with these pairs of XML.
inline std::string plist(const std::string& pairs) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + pairs +
         "</dict></plist>\n";
}

inline std::string stringPair(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

/// The temporary directory of the code under test, for one scope.
class TemporaryDirectoryScope {
 public:
  [[nodiscard]] const std::filesystem::path& path() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
  ScopedEnvironment environment_{"TMPDIR", folder_.path().c_str()};
};

}  // namespace test
