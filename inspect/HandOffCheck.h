#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/app/Bundle.h"
#include "foundation/base/Value.h"
#include "toolchain/signature/Requirement.h"

class QVTCodeSignedResource;
class QVTProvisioningProfile;

namespace inspect {

/// One thing that would stop a hand-off, or might annoy testers later.
struct Finding {
  enum class Severity { failure, warning };
  Severity severity = Severity::failure;
  /// What is wrong, with the value that is.
  std::string problem;
  std::string advice;
};
using Findings = std::vector<Finding>;

/// An app before its hand-off. `profile` is empty when the app has none that can be read.
struct HandOff {
  const QVTCodeSignedResource& resource;
  const QVTProvisioningProfile* profile = nullptr;
  std::optional<std::string> keychainPath = {};
  /// Where symbol bundles are, or one itself.
  std::optional<std::string> symbolsPath = {};
  foundation::Date now = {};
  /// Whose code may be signed by another team.
  toolchain::RootTest isAppleRoot = toolchain::isAppleRoot;
};

/// Everything below, in the order of a run. Nothing is changed or sent.
Findings checkHandOff(const HandOff& handOff);

Findings checkTools();
Findings checkVersions(const foundation::Bundle& bundle);
Findings checkExecutable(const foundation::Bundle& bundle);
Findings checkProfile(const HandOff& handOff);
Findings checkCertificates(const HandOff& handOff);
Findings checkEntitlements(const HandOff& handOff);
Findings checkNestedCode(const HandOff& handOff);
Findings checkSymbols(const HandOff& handOff);

}  // namespace inspect
