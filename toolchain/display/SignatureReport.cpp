#include "toolchain/display/SignatureReport.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/CMS.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/display/private/SignedCode.h"
#include "toolchain/signature/Requirement.h"

namespace toolchain {

namespace {

using foundation::lowercaseHex;
using Lines = std::vector<std::string>;

std::string formatText(const SignedCode& code) {
  std::vector<std::string> architectures;
  for (const auto& slice : code.opened.image.slices()) architectures.push_back(slice.architecture);
  std::string file = std::string("Mach-O ") +
                     (code.opened.image.isUniversal() ? "universal" : "thin") + " (" +
                     foundation::joined(architectures, " ") + ")";
  if (!code.code.isBundle()) return file;
  const bool isApp = code.code.path.extension() == ".app";
  return std::string(isApp ? "app bundle" : "bundle") + " with " + file;
}

std::string flagsText(std::uint32_t flags) {
  constexpr std::array<std::pair<std::uint32_t, std::string_view>, 3> kNames{
      {{codeflag::kAdHoc, "adhoc"},
       {codeflag::kRuntime, "runtime"},
       {codeflag::kLinkerSigned, "linker-signed"}}};
  std::vector<std::string> names;
  for (const auto& [flag, name] : kNames) {
    if (flags & flag) names.emplace_back(name);
  }
  if (names.empty()) names.emplace_back("none");
  return hex(flags) + "(" + foundation::joined(names, ",") + ")";
}

void addDirectory(Lines& lines, const CodeDirectory& directory) {
  const auto& fields = directory.fields;
  lines.push_back("CodeDirectory v=" + hex(fields.version).substr(2) + " size=" +
                  std::to_string(directory.blob.size()) + " flags=" + flagsText(fields.flags) +
                  " hashes=" + std::to_string(directory.codeSlotCount) + "+" +
                  std::to_string(directory.specialSlotCount) + " location=embedded");
}

void addHashes(Lines& lines, const SignedCode& code) {
  const CodeDirectory& best = code.signature->strongest();
  lines.push_back("Hash type=" + std::string(hashName(best.fields.hashType)) +
                  " size=" + std::to_string(hashSize(best.fields.hashType)));
  std::vector<std::string> choices;
  for (const auto& directory : code.signature->directories) {
    const std::string name(hashName(directory.fields.hashType));
    choices.push_back(name);
    lines.push_back("CandidateCDHash " + name + "=" + lowercaseHex(directory.cdHash()));
    lines.push_back("CandidateCDHashFull " + name + "=" + lowercaseHex(directory.fullHash()));
  }
  lines.push_back("Hash choices=" + foundation::joined(choices, ","));
  lines.push_back("CMSDigest=" + lowercaseHex(code.signature->primary().fullHash()));
  lines.push_back("CMSDigestType=" + std::to_string(static_cast<std::uint64_t>(
                                         code.signature->primary().fields.hashType)));
  if (best.fields.version >= 0x20400) {
    lines.push_back("Executable Segment base=" + std::to_string(best.fields.execSegmentBase));
    lines.push_back("Executable Segment limit=" + std::to_string(best.fields.execSegmentLimit));
    lines.push_back("Executable Segment flags=" + hex(best.fields.execSegmentFlags));
  }
  lines.push_back("Page size=" + std::to_string(std::uint64_t{1} << best.fields.pageShift));
  lines.push_back("CDHash=" + lowercaseHex(best.cdHash()));
}

void addSigner(Lines& lines, const SignedCode& code, int verbosity) {
  const auto wrapper = code.signature->blobs.find(slot::kSignature);
  if (!wrapper || wrapper->size() <= 8) {
    lines.emplace_back("Signature=adhoc");
    return;
  }
  const Bytes message = wrapper->subspan(8);
  lines.push_back("Signature size=" + std::to_string(message.size()));
  const auto signer = foundation::CMS::verifyDetached(message, code.signature->primary().blob);
  if (!signer) {
    lines.emplace_back("Authority=(unavailable)");
    return;
  }
  if (verbosity >= 2) {
    for (const auto& certificate : signer->chain) {
      lines.push_back("Authority=" + certificate.subjectSummary().value_or("(unnamed)"));
    }
  }
  if (signer->signingTime) {
    lines.push_back("Signed Time=" + foundation::description(*signer->signingTime));
  }
}

/// None without a blob of requirements.
Result<std::vector<TypedRequirement>> requirementsOf(const SignedCode& code) {
  const auto blob = code.signature->blobs.find(slot::kRequirements);
  if (!blob) return std::vector<TypedRequirement>();
  return parseRequirementSet(*blob).mapError(asFault(Fault::invalidSignature));
}

Result<> addContent(Lines& lines, const SignedCode& code) {
  const auto& primary = code.signature->primary();
  lines.push_back(code.code.infoPlist
                      ? "Info.plist entries=" + std::to_string(code.code.info.size())
                      : "Info.plist=not bound");
  lines.push_back("TeamIdentifier=" + (primary.fields.teamIdentifier.empty()
                                           ? "not set"
                                           : primary.fields.teamIdentifier));
  const auto seal = code.seal();
  if (!seal) return seal.error();
  if (!*seal) {
    lines.emplace_back("Sealed Resources=none");
  } else {
    const bool second = !(*seal)->rules.rules2.empty();
    const auto& rules = second ? (*seal)->rules.rules2 : (*seal)->rules.rules;
    const auto& files = second ? (*seal)->files2 : (*seal)->files;
    lines.push_back(std::string("Sealed Resources version=") + (second ? "2" : "1") + " rules=" +
                    std::to_string(rules.size()) + " files=" + std::to_string(files.size()));
  }
  return requirementsOf(code).map([&](const auto& set) {
    const auto blob = code.signature->blobs.find(slot::kRequirements);
    lines.push_back(blob ? "Internal requirements count=" + std::to_string(set.size()) +
                               " size=" + std::to_string(blob->size())
                         : "Internal requirements=none");
  });
}

std::string_view typeName(std::uint32_t type) {
  constexpr std::array<std::string_view, 6> kNames = {"unknown",    "host",    "guest",
                                                      "designated", "library", "plugin"};
  return kNames[type < kNames.size() ? type : 0];
}

Result<SignedCode> openSigned(const std::filesystem::path& path) {
  auto code = SignedCode::open(path);
  if (code && !code->signature) return faultError(Fault::unsignedCode);
  return code;
}

}  // namespace

Result<Lines> signatureReport(const ReportOptions& options) {
  const auto code = openSigned(options.code);
  if (!code) return code.error();
  Lines lines{"Executable=" + code->code.executable.string()};
  if (options.verbosity == 0) return lines;
  lines.push_back("Identifier=" + code->signature->primary().fields.identifier);
  lines.push_back("Format=" + formatText(*code));
  addDirectory(lines, code->signature->strongest());
  if (options.verbosity >= 3) addHashes(lines, *code);
  addSigner(lines, *code, options.verbosity);
  return addContent(lines, *code).map([&] { return std::move(lines); });
}

Result<Lines> requirementsReport(const std::filesystem::path& path) {
  const auto code = openSigned(path);
  if (!code) return code.error();
  const auto set = requirementsOf(*code);
  if (!set) return set.error();
  Lines lines;
  for (const auto& each : *set) {
    const auto expression = parseRequirement(each.blob).mapError(asFault(Fault::invalidSignature));
    if (!expression) return expression.error();
    lines.push_back(std::string(typeName(each.type)) + " => " + text(*expression));
  }
  if (std::ranges::count(*set, requirement::kDesignated, &TypedRequirement::type) == 0) {
    lines.push_back("# designated => cdhash H\"" +
                    lowercaseHex(code->signature->strongest().cdHash()) + "\"");
  }
  return lines;
}

}  // namespace toolchain
