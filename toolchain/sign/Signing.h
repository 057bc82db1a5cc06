#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"

/// Signing of iOS apps, extensions, frameworks and Mach-O files without a process of its own.
namespace toolchain {

struct SignOptions {
  /// Bundle or Mach-O file; messages name it exactly so.
  std::filesystem::path code;
  /// SHA-1 of the certificate in 40 hex digits of either case, its common name, a part of a common
  /// name that only one identity has, or "-" for an ad-hoc signature.
  std::string identity;
  /// Where the private key is; absent: the user's default list.
  std::optional<std::filesystem::path> keychain = {};
  /// Property list in XML or binary form; ignored for code that is not a main executable.
  std::optional<std::filesystem::path> entitlements = {};
  /// Signed code may be signed again.
  bool force = false;
  /// All nested code is signed, not only unsigned code.
  bool deep = false;
  /// Absent: now.
  std::optional<foundation::Date> signingTime = {};
  /// Called on the calling thread with one line at a time, such as "X.app: replacing existing
  /// signature"; may be empty.
  std::function<void(const std::string&)> note = {};
};

/// Signs `code` in place, after its unsigned nested code. On failure every file is as it was
/// before, and the error says in one line which file and why. Uses all cores.
Result<> sign(const SignOptions& options);

/// How much room a slice is to have for its signature.
struct SliceRoom {
  /// As `Slice::architecture`.
  std::string architecture;
  /// A multiple of 16.
  std::uint32_t size = 0;
};

struct AllocateOptions {
  std::filesystem::path input;
  std::filesystem::path output;
  /// One entry for each slice of the input.
  std::vector<SliceRoom> rooms = {};
  /// Removes existing signatures instead.
  bool remove = false;
};

/// Writes a copy of `input` with room for signatures, laid out as `sign` does.
Result<> allocate(const AllocateOptions& options);

/// SOURCE_DATE_EPOCH as a date; absent when it is not set. Fails when it is not a number.
Result<std::optional<foundation::Date>> sourceDateEpoch();

}  // namespace toolchain
