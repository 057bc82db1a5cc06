#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "foundation/base/Value.h"
#include "tests/support/Identities.h"

namespace test {

/// Created once per test program, since a key and a compiler run take time.
const Family& signingFamily();
/// A real executable of armv7 and arm64, in this order.
const std::filesystem::path& universalExecutable();

/// The contents of an app; by default a small distribution build.
struct AppOptions {
  /// Of the bundle folder, ".app" included.
  std::string folderName = "Example.app";
  /// Merged over the default Info dictionary; a null value removes the key.
  foundation::Dictionary info = {};
  /// By default it has the certificates of `signingFamily()` and two devices.
  ProfileOptions profile = exampleProfile();

  static ProfileOptions exampleProfile();
};

/// A real app below `parent`: executable, Info.plist, profile in a signed message, resources in two
/// languages and a symbolic link. Returns its path.
std::filesystem::path makeApp(const std::filesystem::path& parent, const AppOptions& options = {});

/// Packs the app as "Payload/<its name>" with `zip`, together with `besides` (path in the archive
/// to content). The target's name may be anything. Returns it.
std::filesystem::path packIPA(const std::filesystem::path& app, const std::filesystem::path& target,
                              const std::map<std::string, std::string>& besides = {});

/// An Xcode archive whose Products hold the app. Returns the path of the Products folder.
std::filesystem::path makeArchive(const std::filesystem::path& archive,
                                  const std::filesystem::path& app);

/// The family's identity as one PEM file that only its owner can read.
std::filesystem::path writeKeychain(const std::filesystem::path& target,
                                    const Family& family = signingFamily());

}  // namespace test
