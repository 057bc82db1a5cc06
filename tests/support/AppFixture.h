#pragma once

#include <filesystem>

#include "foundation/base/Value.h"
#include "tests/support/Identities.h"

namespace test {

/// Created once per test program, since a key and a compiler run take time.
const Family& signingFamily();

/// The contents of an app; by default a small distribution build.
struct AppOptions {
  /// Merged over the default Info dictionary; a null value removes the key.
  foundation::Dictionary info = {};
  /// By default it has the certificates of `signingFamily()` and two devices.
  ProfileOptions profile = exampleProfile();

  static ProfileOptions exampleProfile();
};

/// A real "Example.app" below `parent`: executable of armv7 and arm64, Info.plist, profile in a
/// signed message, resources in two languages and a symbolic link. Returns its path.
std::filesystem::path makeApp(const std::filesystem::path& parent, const AppOptions& options = {});

/// The family's identity as one PEM file that only its owner can read.
std::filesystem::path writeKeychain(const std::filesystem::path& target,
                                    const Family& family = signingFamily());

}  // namespace test
