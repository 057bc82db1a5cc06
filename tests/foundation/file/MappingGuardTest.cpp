#include "foundation/file/MappedFile.h"
#include "tests/support/Test.h"

namespace {

using foundation::MappedFile;
using foundation::MappingGuard;

constexpr std::size_t kSize = 1 << 20;

std::size_t countOf(Bytes bytes, char wanted) {
  return static_cast<std::size_t>(std::ranges::count(textOf(bytes), wanted));
}

/// Run in a separate process, since a truncation is remembered until the process ends.
TEST(MappingGuard, WhatAFileLosesReadsAsZerosAndIsReported) {
  const TemporaryFolder folder;
  const fs::path path = folder.write("file", std::string(kSize, 'x'));
  const auto other = MappedFile::open(folder.write("other", std::string(kSize, 'y')));
  const std::string problem = inChildProcess([&]() -> std::string {
    auto opened = MappedFile::open(path);
    const MappedFile file = std::move(*opened);
    fs::resize_file(path, kSize / 2);
    if (countOf(file.bytes().first(kSize / 2), 'x') != kSize / 2) return "what is left is wrong";
    if (!MappingGuard::checkAll()) return "reported too early";
    if (countOf(file.bytes(), 0) != kSize / 2) return "what is lost is not zero";
    if (countOf(other->bytes(), 'y') != kSize) return "another file is concerned";
    return problemOf(MappingGuard::checkAll());
  });
  EXPECT_THAT(problem, HasSubstr("file was truncated by another program while it was read"));
}

TEST(MappingGuardDeathTest, OtherBusErrorsStayFatal) {
  const TemporaryFolder folder;
  const auto file = MappedFile::open(folder.write("file", "x"));
  ASSERT_TRUE(file);
#ifdef __SANITIZE_ADDRESS__
  EXPECT_EXIT(std::raise(SIGBUS), testing::ExitedWithCode(1), "AddressSanitizer: BUS");
#else
  EXPECT_EXIT(std::raise(SIGBUS), testing::KilledBySignal(SIGBUS), "");
#endif
}

}  // namespace
