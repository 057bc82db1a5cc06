#pragma once

#include <filesystem>

#include "tests/support/Identities.h"

namespace test {

/// A distribution identity, created once per test program, since a key takes time.
const Family& signingFamily();

/// A real "Example.app" below `parent`: executable of armv7 and arm64, Info.plist, profile in a
/// signed message, localized and other resources, and a symbolic link. Returns its path.
std::filesystem::path makeApp(const std::filesystem::path& parent);

/// The family's identity as one PEM file that only its owner can read.
std::filesystem::path writeKeychain(const std::filesystem::path& target,
                                    const Family& family = signingFamily());

}  // namespace test
