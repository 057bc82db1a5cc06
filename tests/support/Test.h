#pragma once

// What most tests need: GoogleTest, the standard headers, the values of foundation/base, and one
// helper of each kind. Only `*Test.cpp` files and headers beside them include it.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/base/Data.h"
#include "foundation/base/Error.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Path.h"
#include "foundation/base/Result.h"
#include "foundation/base/Text.h"
#include "foundation/base/Value.h"
#include "foundation/format/PropertyList.h"
#include "foundation/queue/RunLoop.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ZipFixture.h"

namespace test {

// Results

/// The error's text; empty for a success.
template <class T>
std::string problemOf(const foundation::Result<T>& result) {
  return result ? std::string() : result.error().localizedDescription();
}

/// What `work` writes to standard error, which is also where the system log goes here.
template <class Work>
std::string logOf(const Work& work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

// Waiting

/// Further than any test needs: reached only by one that fails.
inline constexpr std::chrono::seconds kDeadline{60};

/// Waits for what another thread or process does; false at the deadline.
template <class Condition>
bool eventually(const Condition& isMet) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!isMet()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// The same, running the main loop meanwhile.
inline bool eventuallyOnMainLoop(const std::function<bool()>& isMet) {
  return foundation::RunLoop::main().runUntil(isMet, kDeadline);
}

// Bytes

/// Lower-case digits, two for each byte.
inline std::string hexOf(std::string_view bytes) {
  return foundation::lowercaseHex(foundation::bytesOf(bytes));
}
inline std::string hexOf(foundation::Bytes bytes) { return foundation::lowercaseHex(bytes); }

/// The bytes of "fade 0c01"; spaces and line ends are skipped.
std::string fromHex(std::string_view digits);

/// `number` in `size` bytes, of which more than eight are zero.
std::string littleEndian(std::uint64_t number, int size);
std::string bigEndian(std::uint64_t number, int size);

/// `piece`, `count` times.
std::string repeated(std::string_view piece, std::size_t count);

/// Bytes that do not compress, the same in every run.
std::string noise(std::size_t size, std::uint32_t seed = 1);

/// Passes on an input of a reader, damaged or not. Small ones are also saved for that fuzz target's
/// corpus if FUZZ_INPUTS names the folder of all corpora; see scripts/fuzz-corpus.sh.
foundation::Bytes keepForFuzzing(const std::string& target, foundation::Bytes input);
inline std::string_view keepForFuzzing(const std::string& target, std::string_view input) {
  return foundation::textOf(keepForFuzzing(target, foundation::bytesOf(input)));
}

// Property lists

/// The dictionary as an XML property list.
std::string plist(const foundation::Dictionary& dictionary);
/// Writes it to a file, creating parents; returns the path.
std::filesystem::path writePlist(const std::filesystem::path& path,
                                 const foundation::Dictionary& dictionary);

}  // namespace test

namespace fs = std::filesystem;
using namespace test;
using namespace std::chrono_literals;
using foundation::Array, foundation::Bytes, foundation::bytesOf, foundation::Data;
using foundation::Date, foundation::Dictionary, foundation::Error, foundation::Result;
using foundation::textOf, foundation::Value;
using testing::AllOf, testing::Contains, testing::Each, testing::ElementsAre;
using testing::ElementsAreArray, testing::EndsWith, testing::HasSubstr, testing::IsEmpty;
using testing::IsSupersetOf, testing::Not, testing::Optional, testing::Pair, testing::SizeIs;
using testing::StartsWith, testing::UnorderedElementsAre;
