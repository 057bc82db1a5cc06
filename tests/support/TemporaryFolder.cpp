#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>

namespace test {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
  std::string name = (fs::canonical(fs::temp_directory_path()) / "sendoff-test-XXXXXX").string();
  if (!mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), name);
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

fs::path TemporaryFolder::write(const fs::path& name, std::string_view content) const {
  const fs::path target = path_ / name;
  fs::create_directories(target.parent_path());
  std::ofstream file(target, std::ios::binary | std::ios::trunc);
  file << content;
  file.flush();
  EXPECT_TRUE(file.good()) << "cannot write " << target;
  return target;
}

std::string contentsOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "cannot open " << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

ScopedEnvironment::ScopedEnvironment(std::string name, const char* value) : name_(std::move(name)) {
  if (const char* before = std::getenv(name_.c_str())) {
    before_ = before;
    wasSet_ = true;
  }
  if (value) {
    ::setenv(name_.c_str(), value, 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

ScopedEnvironment::~ScopedEnvironment() {
  if (wasSet_) {
    ::setenv(name_.c_str(), before_.c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

}  // namespace test
