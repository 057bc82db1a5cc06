#include "inspect/HandOffCheck.h"

#include <algorithm>
#include <iterator>

#include "foundation/base/Format.h"
#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/base/URL.h"
#include "foundation/crypto/Certificate.h"
#include "foundation/crypto/SigningKeychains.h"
#include "foundation/file/FileManager.h"
#include "inspect/EntitlementGrants.h"
#include "inspect/ForeignApp.h"
#include "inspect/Report.h"
#include "macho/QVTMachOBinary.h"
#include "macho/QVTdSYM.h"
#include "preparation/QVTCodeSignedResource.h"
#include "preparation/QVTFileSystemUtils.h"
#include "signing/ProfileProblems.h"
#include "signing/QVTDeveloperCertificate.h"
#include "signing/QVTProvisioningProfile.h"
#include "signing/SigningCertificate.h"
#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/display/SignatureFacts.h"

namespace inspect {

namespace {

constexpr auto kSoon = std::chrono::days(14);

/// The tool removes this entitlement before it signs.
constexpr std::string_view kRemovedEntitlement = "beta-reports-active";

Finding fails(std::string problem, std::string advice) {
  return {Finding::Severity::failure, std::move(problem), std::move(advice)};
}

Finding warns(std::string problem, std::string advice) {
  return {Finding::Severity::warning, std::move(problem), std::move(advice)};
}

void append(Findings& all, Findings more) { std::ranges::move(more, std::back_inserter(all)); }

bool isMissing(const std::optional<std::string>& path) { return !path || path->empty(); }

Findings checkVersionKey(const foundation::Bundle& bundle, const std::string& key) {
  const foundation::Value* value = bundle.objectForInfoDictionaryKey(key);
  if (!value) {
    return {warns("Info.plist has no " + key, "set it; testers see builds without this version")};
  }
  if (!value->string()) {
    return {fails("Info.plist's " + key + " is of type " + foundation::className(value),
                  "make it a string; the release service gets no version otherwise")};
  }
  if (value->string()->empty()) {
    return {warns("Info.plist's " + key + " is empty", "set it; testers see it")};
  }
  return {};
}

Findings checkSlices(const std::string& path, const QVTMachOBinary& binary) {
  Findings findings;
  if (binary.slices().empty()) {
    findings.push_back(
        fails("the executable " + path + " has no architectures", "build the app again"));
  }
  for (const auto& slice : binary.slices()) {
    if (slice->uuid()) continue;
    findings.push_back(
        fails("slice " + slice->architectureName() + " of the executable has no UUID",
              "link without -no_uuid; the release is named by the UUIDs"));
  }
  return findings;
}

Findings checkExpiry(const std::string& what, foundation::Date end, foundation::Date now,
                     const std::string& advice) {
  if (end <= now) return {fails(what + " expired on " + foundation::dayOf(end), advice)};
  if (end - now <= kSoon) return {warns(what + " expires on " + foundation::dayOf(end), advice)};
  return {};
}

/// Finds the issuers as codesign does.
Findings checkChain(const foundation::Certificate& certificate,
                    const std::optional<std::string>& keychainPath) {
  const auto keychains = foundation::SigningKeychains::open(keychainPath);
  if (!keychains) return {};
  const auto chain = keychains->chainOf(certificate);
  if (chain) return {};
  return {fails("signing will fail: " + chain.error().localizedDescription(),
                "put that certificate into the keychain (docs/codesign.md)")};
}

/// The identifier prefix is the team's identifier only in newer accounts.
std::string teamOf(const QVTProvisioningProfile& profile) {
  const auto* teams = foundation::arrayAt(profile.file().contents, "TeamIdentifier");
  if (teams && !teams->empty() && teams->front().string()) return *teams->front().string();
  return profile.applicationIdentifierPrefix().value_or("");
}

Findings checkNestedPiece(const std::filesystem::path& path, const std::string& name,
                          const std::string& team, toolchain::RootTest isAppleRoot) {
  const auto facts = toolchain::signatureFacts(path, isAppleRoot);
  if (!facts) {
    return {fails("nested code " + name + ": " + facts.error().localizedDescription(),
                  "build it again")};
  }
  if (facts->isEncrypted) {
    return {fails("nested code " + name + " is encrypted", "take it from your own build")};
  }
  if (!facts->isSigned) {
    return {warns("nested code " + name + " is not signed",
                  "codesign of this tool signs it on the way; on a Mac sign it first")};
  }
  if (!team.empty() && facts->teamIdentifier != team && !facts->isApplesOwn) {
    const std::string other =
        facts->teamIdentifier.empty() ? "no team" : "team " + facts->teamIdentifier;
    return {
        fails("nested code " + name + " is signed under " + other + ", the profile is for " + team,
              "sign it with the identity of the app before the hand-off")};
  }
  return {};
}

/// Every symbol bundle at or directly below `path`.
std::vector<std::shared_ptr<QVTdSYM>> symbolBundles(const std::string& path) {
  std::vector<std::shared_ptr<QVTdSYM>> result;
  auto add = [&](const std::string& candidate) {
    if (auto symbols = QVTdSYM::dSYMWithURL(foundation::URL::fileURLWithPath(candidate))) {
      result.push_back(std::move(symbols));
    }
  };
  add(path);
  if (const auto names = foundation::FileManager::contentsOfDirectoryAtPath(path)) {
    for (const auto& name : *names) {
      if (name.ends_with(".dSYM")) add(foundation::appendingPathComponent(path, name));
    }
  }
  return result;
}

bool anyHolds(const std::vector<std::shared_ptr<QVTdSYM>>& bundles, const std::string& uuid) {
  bool found = false;
  for (const auto& symbols : bundles) {
    symbols->enumerateUUIDs([&](const auto& one, const auto&) { found = found || one == uuid; });
  }
  return found;
}

Findings checkTools() {
  Findings findings;
  for (const char* tool : {"unzip", "zip"}) {
    if (isMissing(QVTFileSystemUtils::pathForShellTool(tool))) {
      findings.push_back(fails(std::string(tool) + " is not in PATH", "install it"));
    }
  }
  for (const char* tool : {"codesign", "codesign_allocate"}) {
    if (isMissing(QVTFileSystemUtils::pathForXcTool(tool))) {
      findings.push_back(
          fails(std::string("xcrun does not find ") + tool,
                "install Xcode's command-line tools, or keep libexec/sendoff beside bin"));
    }
  }
  return findings;
}

Findings checkVersions(const foundation::Bundle& bundle) {
  Findings findings;
  const auto identifier =
      foundation::stringAt(bundle.infoDictionary(), "CFBundleIdentifier").value_or("");
  if (identifier.empty()) {
    findings.push_back(fails("Info.plist has no CFBundleIdentifier of type string",
                             "set it; the release service finds the app by it"));
  } else if (!foundation::isPlainPathComponent(identifier)) {
    findings.push_back(
        fails("the bundle identifier " + identifier + " cannot be part of a request to the service",
              "use letters, digits, hyphens and periods, as the developer account demands"));
  }
  for (const char* key : {"CFBundleShortVersionString", "CFBundleVersion"}) {
    append(findings, checkVersionKey(bundle, key));
  }
  return findings;
}

Findings checkExecutable(const foundation::Bundle& bundle) {
  const auto path = bundle.executablePath();
  if (!path) {
    return {fails("the app has no executable (CFBundleExecutable)", "build the app again")};
  }
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(*path);
  if (!binary) {
    return {fails("the executable " + *path + " cannot be read", "build the app again")};
  }
  const auto facts = toolchain::signatureFacts(bundle.bundlePath());
  if (!facts) {
    return {fails("the executable cannot be signed: " + facts.error().localizedDescription(),
                  "build the app again")};
  }
  Findings findings = checkSlices(*path, *binary);
  if (facts->isEncrypted) {
    findings.push_back(
        fails("the executable is encrypted, as from the store", "take your own build"));
  }
  return findings;
}

Findings checkProfile(const HandOff& handOff) {
  const auto path = handOff.resource.provisioningProfilePath().value_or("");
  if (!handOff.profile) {
    return {fails("no provisioning profile can be read at " + path,
                  "archive with a distribution profile, so that the app embeds it")};
  }
  Findings findings;
  const auto identifier = handOff.resource.bundleIdentifier().value_or("");
  for (auto& one : profileProblems(*handOff.profile, identifier, handOff.now)) {
    findings.push_back(fails(std::move(one.problem), std::move(one.advice)));
  }
  if (const auto end = handOff.profile->expirationDate(); end && *end > handOff.now) {
    append(findings, checkExpiry("the provisioning profile", *end, handOff.now,
                                 "renew it in the developer account and archive again"));
  }
  return findings;
}

Findings checkCertificates(const HandOff& handOff) {
  if (!handOff.profile) return {};
  const auto usable = certificateToSignWith(*handOff.profile, handOff.keychainPath);
  if (!usable) {
    return {fails("no certificate of the profile has its private key in the keychain: " +
                      usable.error().localizedDescription(),
                  "add the key (docs/codesign.md), or name the keychain with --keychain")};
  }
  for (const auto& certificate : handOff.profile->file().certificates()) {
    if (foundation::uppercaseHex(certificate.sha1()) != (*usable)->signingIdentity()) continue;
    Findings findings =
        checkExpiry("the signing certificate", certificate.notAfter(), handOff.now,
                    "make a new one in the developer account, and a profile that lists it");
    append(findings, checkChain(certificate, handOff.keychainPath));
    return findings;
  }
  return {};
}

Findings checkEntitlements(const HandOff& handOff) {
  if (!handOff.profile) return {};
  const auto facts = toolchain::signatureFacts(handOff.resource.bundle()->bundlePath());
  if (!facts) return {};
  const auto* granted = foundation::dictionaryAt(handOff.profile->file().contents, "Entitlements");
  Findings findings;
  for (const auto& [key, value] : facts->entitlements) {
    if (key == kRemovedEntitlement) continue;
    const auto* pattern = granted ? foundation::find(*granted, key) : nullptr;
    if (grants(pattern ? *pattern : foundation::Value(), value)) continue;
    findings.push_back(fails("the app's entitlement " + key + " = " +
                                 foundation::singleLineDescription(value) +
                                 " is not granted by the profile",
                             "add the capability to the app's identifier and renew the profile"));
  }
  return findings;
}

Findings checkSymbols(const HandOff& handOff) {
  if (!handOff.symbolsPath) return {};
  const auto bundles = symbolBundles(*handOff.symbolsPath);
  if (bundles.empty()) {
    return {fails("no symbol bundle at " + *handOff.symbolsPath,
                  "name the folder with the .dSYM bundles")};
  }
  const auto path = handOff.resource.bundle()->executablePath();
  const auto binary = path ? QVTMachOBinary::MachOBinaryWithPath(*path) : nullptr;
  if (!binary) return {};
  Findings findings;
  for (const auto& slice : binary->slices()) {
    if (!slice->uuid() || anyHolds(bundles, *slice->uuid())) continue;
    findings.push_back(warns("no symbols for slice " + slice->architectureName() + " (" +
                                 *slice->uuid() + ") at " + *handOff.symbolsPath,
                             "keep the .dSYM of this very build"));
  }
  return findings;
}

}  // namespace

Findings checkNestedCode(const HandOff& handOff) {
  const auto& root = handOff.resource.bundle()->bundlePath();
  const auto bundle = toolchain::CodeBundle::open(root);
  if (!bundle) return {};
  const auto nested = toolchain::nestedCode(*bundle);
  if (!nested) {
    return {fails("nested code cannot be listed: " + nested.error().localizedDescription(),
                  "mind the app's permissions")};
  }
  const std::string team = handOff.profile ? teamOf(*handOff.profile) : "";
  Findings findings;
  for (const auto& path : *nested) {
    append(findings, checkNestedPiece(path, path.lexically_relative(bundle->path).string(), team,
                                      handOff.isAppleRoot));
  }
  return findings;
}

Findings checkHandOff(const HandOff& handOff) {
  // All other findings would follow from this one.
  if (auto foreign = foreignApp(*handOff.resource.bundle())) return {*std::move(foreign)};
  Findings all = checkTools();
  append(all, checkVersions(*handOff.resource.bundle()));
  append(all, checkExecutable(*handOff.resource.bundle()));
  append(all, checkProfile(handOff));
  append(all, checkCertificates(handOff));
  append(all, checkEntitlements(handOff));
  append(all, checkNestedCode(handOff));
  append(all, checkSymbols(handOff));
  return all;
}

}  // namespace inspect
