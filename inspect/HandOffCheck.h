#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/signature/Requirement.h"

class QVTCodeSignedResource;
class QVTProvisioningProfile;

namespace inspect {

/// Something that would stop a hand-off, or might annoy testers later.
struct Finding {
  enum class Severity { failure, warning };
  Severity severity = Severity::failure;
  /// What is wrong, with the offending value.
  std::string problem;
  std::string advice;
};
using Findings = std::vector<Finding>;

/// An app before its hand-off.
struct HandOff {
  const QVTCodeSignedResource& resource;
  /// Null if the app has no readable profile.
  const QVTProvisioningProfile* profile = nullptr;
  std::optional<std::string> keychainPath = {};
  /// A symbol bundle, or a folder of them.
  std::optional<std::string> symbolsPath = {};
  foundation::Date now = {};
  /// Recognises the vendor's root: code below it may be signed by another team.
  toolchain::RootTest isAppleRoot = toolchain::isAppleRoot;
};

/// Runs all checks in the order of a run of the tool, changing and sending nothing.
Findings checkHandOff(const HandOff& handOff);
/// One of them.
Findings checkNestedCode(const HandOff& handOff);

}  // namespace inspect
