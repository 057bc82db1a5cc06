#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Identities.h"
#include "tests/support/Test.h"
#include "toolchain/sign/Signing.h"

/// Code made with a real compiler and linker, and what tests of signing do with it.
namespace test {

/// Linked once per test program.
enum class Kind {
  arm64,       ///< executable for iOS 15
  oldArm64,    ///< executable for iOS 9
  armv7,       ///< executable for iOS 9
  universal,   ///< both of the above
  watch,       ///< arm64_32 executable for watchOS 8
  dylib,       ///< arm64 for iOS 15
  plistDylib,  ///< the same with an Info.plist inside
};
const std::string& machO(Kind kind);

/// A folder with Info.plist and executable, named and identified as given; "X.app" has executable
/// "X". Returns its path.
std::filesystem::path writeBundle(const std::filesystem::path& path, const std::string& identifier,
                                  Kind kind);
/// An app with resources of every kind that the rules know, links and awkward names.
std::filesystem::path writeApp(const std::filesystem::path& folder, Kind kind = Kind::arm64);

/// Leaf, intermediate and root in a folder that serves as keychain, and the root alone for openssl.
struct TestKeychain {
  Family family;
  std::filesystem::path path;
  std::filesystem::path rootFile;
};
/// One for each kind of key, below the running test program's own temporary folder.
const TestKeychain& testKeychain(KeyKind kind);

/// What a script of another make says about the signature; empty when it finds nothing wrong.
std::string independentComplaints(const std::filesystem::path& code,
                                  const std::vector<std::string>& options);

/// What `sign` says: empty when it succeeds. Notes go to `notes`.
std::string signingProblem(toolchain::SignOptions options,
                           std::vector<std::string>* notes = nullptr);

}  // namespace test
