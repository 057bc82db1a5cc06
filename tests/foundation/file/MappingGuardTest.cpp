#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "foundation/file/MappedFile.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using foundation::MappedFile;
using foundation::MappingGuard;

constexpr std::size_t kSize = 1 << 20;

std::size_t countOf(foundation::Bytes bytes, char wanted) {
  return static_cast<std::size_t>(std::ranges::count(foundation::textOf(bytes), wanted));
}

/// Run in a separate process, since a truncation is remembered until the process ends.
TEST(MappingGuardDeathTest, WhatAFileLosesReadsAsZerosAndIsReported) {
  const test::TemporaryFolder folder;
  const fs::path path = folder.write("file", std::string(kSize, 'x'));
  const auto check = [&] {
    auto other = MappedFile::open(folder.write("other", std::string(kSize, 'y')));
    auto opened = MappedFile::open(path);
    const MappedFile file = std::move(*opened);
    fs::resize_file(path, kSize / 2);
    if (countOf(file.bytes().first(kSize / 2), 'x') != kSize / 2) std::exit(1);
    if (!MappingGuard::checkAll()) std::exit(2);
    if (countOf(file.bytes(), 0) != kSize / 2) std::exit(3);
    if (countOf(other->bytes(), 'y') != kSize) std::exit(4);
    std::fputs(MappingGuard::checkAll().error().localizedDescription().c_str(), stderr);
    std::exit(5);
  };
  EXPECT_EXIT(check(), testing::ExitedWithCode(5),
              "file was truncated by another program while it was read");
}

TEST(MappingGuardDeathTest, OtherBusErrorsStayFatal) {
  const test::TemporaryFolder folder;
  const auto file = MappedFile::open(folder.write("file", "x"));
  ASSERT_TRUE(file);
#ifdef __SANITIZE_ADDRESS__
  EXPECT_EXIT(std::raise(SIGBUS), testing::ExitedWithCode(1), "AddressSanitizer: BUS");
#else
  EXPECT_EXIT(std::raise(SIGBUS), testing::KilledBySignal(SIGBUS), "");
#endif
}

}  // namespace
