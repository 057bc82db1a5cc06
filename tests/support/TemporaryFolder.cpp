#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <gtest/gtest.h>

#include "tests/support/OtherProcess.h"

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
  return writeFile(path_ / name, content);
}

fs::path writeFile(const fs::path& path, std::string_view content) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
  return path;
}

fs::path writeProgram(const fs::path& path, std::string_view content) {
  fs::permissions(writeFile(path, content), fs::perms(0755));
  return path;
}

std::string contentsOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "cannot open " << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void copyTree(const fs::path& from, const fs::path& to) {
  fs::create_directories(to.parent_path());
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

std::vector<std::string> pathsBelow(const fs::path& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    paths.push_back(entry.path().lexically_relative(folder));
  }
  std::ranges::sort(paths);
  return paths;
}

std::string snapshot(const fs::path& folder) {
  return outputOf({"tar", "--sort=name", "-cC", folder, "."});
}

namespace {

void setVariable(const std::string& name, const char* value) {
  if (value) {
    ::setenv(name.c_str(), value, 1);
  } else {
    ::unsetenv(name.c_str());
  }
}

}  // namespace

ScopedEnvironment::ScopedEnvironment(std::string name, const char* value) : name_(std::move(name)) {
  if (const char* const before = std::getenv(name_.c_str())) before_ = before;
  setVariable(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() {
  setVariable(name_, before_ ? before_->c_str() : nullptr);
}

}  // namespace test
