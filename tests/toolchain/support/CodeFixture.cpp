#include "tests/toolchain/support/CodeFixture.h"

#include "tests/support/MachOFixture.h"

namespace test {

namespace fs = std::filesystem;

namespace {

RealImageOptions optionsFor(Kind kind) {
  RealImageOptions options{.minimumOS = "15.0", .sdk = "15.0"};
  if (kind == Kind::oldArm64 || kind == Kind::armv7) options.minimumOS = "9.0";
  if (kind == Kind::armv7) options.architecture = "armv7";
  if (kind == Kind::watch) {
    options.architecture = "arm64_32";
    options.platform = "watchos";
    options.minimumOS = "8.0";
  }
  if (kind == Kind::dylib || kind == Kind::plistDylib) options.linkerArguments = {"-dylib"};
  return options;
}

std::string linked(Kind kind) {
  const TemporaryFolder folder;
  const fs::path target = folder / "code";
  if (kind == Kind::universal) {
    lipo(target,
         {folder.write("armv7", machO(Kind::armv7)), folder.write("arm64", machO(Kind::oldArm64))});
    return contentsOf(target);
  }
  RealImageOptions options = optionsFor(kind);
  if (kind == Kind::plistDylib) {
    writePlist(folder / "info", {{"CFBundleIdentifier", "com.example.inside"}});
    options.linkerArguments.insert(options.linkerArguments.end(),
                                   {"-sectcreate", "__TEXT", "__info_plist", folder / "info"});
  }
  linkImage(target, options);
  return contentsOf(target);
}

}  // namespace

const std::string& machO(Kind kind) {
  static std::map<Kind, std::string> made;
  const auto known = made.find(kind);
  return known != made.end() ? known->second : made.emplace(kind, linked(kind)).first->second;
}

fs::path writeBundle(const fs::path& path, const std::string& identifier, Kind kind) {
  const std::string name = path.stem();
  writeFile(path / name, machO(kind));
  fs::permissions(path / name, fs::perms(0755));
  writePlist(path / "Info.plist",
             {{"CFBundleExecutable", name}, {"CFBundleIdentifier", identifier}});
  return path;
}

fs::path writeApp(const fs::path& folder, Kind kind) {
  fs::path app = writeBundle(folder / "X.app", "com.example.x", kind);
  for (const char* name :
       {"PkgInfo", "a&b <c>.txt", "back\\slash", "en.lproj/a.strings", "Base.lproj/Main.nib",
        "en.lproj/locversion.plist", ".DS_Store", "deep/er/.DS_Store", "version.plist",
        "X.dSYM/Contents/Resources/x", "Zo\xc3\xab.txt", "Zoe\xcc\x88.txt", "deep/CodeResources"}) {
    writeFile(app / name, name);
  }
  fs::create_directories(app / "empty");
  fs::create_symlink("deep/er", app / "link");
  fs::create_symlink("nowhere", app / "en.lproj/dangling");
  return app;
}

const TestKeychain& testKeychain(KeyKind kind) {
  static const TemporaryFolder folder;
  static std::map<KeyKind, TestKeychain> made;
  const auto known = made.find(kind);
  if (known != made.end()) return known->second;
  const std::string name = kind == KeyKind::rsa ? "rsa" : "p256";
  const MadeIdentity root = makeRoot("Root of " + name, kind);
  const MadeIdentity intermediate = makeIntermediate(root, "Issuer of " + name, kind);
  const MadeIdentity leaf = makeLeaf(
      intermediate, {.commonName = "iPhone Developer: J\xc3\xb6rg (" + name + ")", .key = kind});
  TestKeychain keychain{{leaf, intermediate, root}, folder / name, {}};
  writeFile(keychain.path / "identity.pem", keychain.family.pem());
  fs::permissions(keychain.path / "identity.pem", fs::perms(0600));
  keychain.rootFile = folder.write(name + "-root.pem", root.certificatePEM());
  return made.emplace(kind, std::move(keychain)).first->second;
}

std::string independentComplaints(const fs::path& code, const std::vector<std::string>& options) {
  std::vector<std::string> command = {"python3", CHECK_SIGNATURE_SCRIPT, code};
  command.insert(command.end(), options.begin(), options.end());
  const CommandResult result = runCommand(command);
  return result.status == 0 ? "" : result.output + "status " + std::to_string(result.status);
}

std::string signingProblem(toolchain::SignOptions options, std::vector<std::string>* notes) {
  options.note = [&](const std::string& text) {
    if (notes) notes->push_back(text);
  };
  const auto done = toolchain::sign(options);
  return done ? std::string() : done.error().localizedDescription();
}

}  // namespace test
