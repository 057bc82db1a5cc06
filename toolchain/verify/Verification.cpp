#include "toolchain/verify/Verification.h"

#include <algorithm>
#include <array>
#include <utility>

#include "foundation/base/Text.h"
#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/seal/SealComparison.h"
#include "toolchain/verify/SignatureCheck.h"

namespace toolchain {

namespace {

namespace fs = std::filesystem;
using foundation::MappedFile;

constexpr int kFailed = 1;
constexpr int kRequirementNotMet = 3;

/// Why one piece of code does not verify.
struct Complaint {
  int status = kFailed;
  std::string reason;
  std::string detail;
  /// Empty for all slices.
  std::string architecture;
  /// The nested code at fault; empty for the code itself.
  fs::path subcomponent;
  std::vector<std::string> files;
};

Complaint complaint(Fault fault, std::string detail = {}, std::string architecture = {}) {
  return {kFailed, std::string(reason(fault)), std::move(detail), std::move(architecture), {}, {}};
}

Complaint complaint(const foundation::Error& error, Fault otherwise,
                    std::string architecture = {}) {
  auto parts = faultParts(error, otherwise);
  return complaint(parts.fault, std::move(parts.detail), std::move(architecture));
}

/// The hashes cover what the loader sees, and there is nothing that they do not cover: after a
/// slice's signature, or between slices.
std::optional<Complaint> checkCoverage(const MachOFile& image) {
  std::vector<Extent> extents;
  for (const auto& slice : image.slices()) {
    if (const auto sound = checkSegments(slice); !sound) {
      return complaint(Fault::strictValidation, sound.error().localizedDescription(),
                       slice.architecture);
    }
    const auto& data = slice.signature->data;
    const std::uint64_t end = data.offset + data.size;
    if (!endsSlice(image.bytesOf(slice), end)) {
      return complaint(Fault::strictValidation,
                       std::to_string(slice.file.size - end) + " bytes lie after the signature",
                       slice.architecture);
    }
    extents.push_back(slice.file);
  }
  if (!image.isUniversal()) return std::nullopt;
  std::ranges::sort(extents, {}, &Extent::offset);
  std::uint64_t end = image.tableEnd();
  extents.push_back({image.file().size(), 0});
  for (const auto& next : extents) {
    if (next.offset > end && !foundation::isZero(image.file().subspan(end, next.offset - end))) {
      return complaint(Fault::strictValidation,
                       "bytes lie outside any slice after offset " + std::to_string(end));
    }
    end = std::max(end, next.offset + next.size);
  }
  return std::nullopt;
}

/// The property list in a loose file, if its signature covers one.
std::optional<Bytes> coveredInfoPlist(const MachOFile& image, const Slice& slice) {
  const auto signature = EmbeddedSignature::parse(image.signatureArea(slice));
  const bool isCovered =
      signature && !foundation::isZero(signature->primary().specialHash(slot::kInfoPlist));
  return isCovered ? image.embeddedInfoPlist(slice) : std::nullopt;
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

/// What a slice says about itself, for comparison with others; each with its plural.
std::array<std::pair<std::string, std::string>, 3> originOf(const CheckedSignature& slice) {
  const auto& fields = slice.signature.primary().fields;
  return {{{"identifiers", quoted(fields.identifier)},
           {"teams", quoted(fields.teamIdentifier)},
           {"signers", slice.signer ? foundation::uppercaseHex(slice.signer->certificate.sha1())
                                    : "none, being signed ad hoc"}}};
}

/// All slices are the same code by the same people.
std::optional<Complaint> checkSameCode(const std::vector<CheckedSignature>& slices) {
  const auto first = originOf(slices.front());
  for (const auto& slice : slices) {
    const auto other = originOf(slice);
    if (const auto [a, b] = std::ranges::mismatch(first, other); a != first.end()) {
      return complaint(Fault::invalidSignature,
                       "the slices have " + a->first + " " + a->second + " and " + b->second);
    }
    // A first slice that does not meet its own requirement has a status of its own.
    if (!slice.meetsRequirementOf(slices.front()) &&
        slices.front().meetsRequirementOf(slices.front())) {
      return complaint(Fault::invalidSignature,
                       "a slice does not meet the designated requirement of the first one");
    }
  }
  return std::nullopt;
}

class Verifier {
 public:
  explicit Verifier(const VerifyOptions& options) : options_(options) {}

  /// A piece of code and all that is nested in it.
  std::optional<Complaint> checkTree(const fs::path& path) {
    const auto code = CodeBundle::open(path);
    if (!code) return complaint(code.error(), Fault::bundleFormat);
    SealDifferences found;
    if (auto wrong = check(*code, found)) return wrong;
    if (!code->isBundle()) return std::nullopt;
    const auto nested = nestedCodeIn(*code, found);
    if (!nested) return complaint(nested.error(), Fault::nestedCode);
    for (const auto& each : *nested) {
      const bool isByHash = contains(found.codeByHash, each);
      auto wrong = isByHash ? checkTree(each) : checkNested(each);
      if (!wrong) continue;
      if (wrong->subcomponent.empty()) wrong->subcomponent = each;
      return wrong;
    }
    return std::nullopt;
  }

 private:
  static bool contains(const std::vector<std::string>& paths, const fs::path& path) {
    return std::ranges::find(paths, path.native()) != paths.end();
  }

  /// Executable, seal and requirement of one piece of code, in this order; `found` gets what the
  /// check of the seal found.
  std::optional<Complaint> check(const CodeBundle& code, SealDifferences& found) {
    const auto opened = openImage(code);
    if (!opened) return complaint(opened.error(), Fault::objectFormat);
    const MachOFile& image = opened->image;
    if (auto wrong = checkIsSigned(image)) return wrong;
    auto seal = openSeal(code);
    if (!seal) return complaint(seal.error(), Fault::invalidResourceDirectory);
    const auto sealBytes = *seal ? std::optional((*seal)->bytes()) : std::nullopt;
    bool meetsRequirement = true;
    if (auto wrong = checkSlices(code, image, sealBytes, meetsRequirement)) return wrong;
    if (code.isBundle()) {
      if (auto wrong = checkSeal(code, sealBytes, found)) return wrong;
    }
    if (meetsRequirement) return std::nullopt;
    return Complaint{
        kRequirementNotMet, "does not satisfy its designated Requirement", {}, {}, {}, {}};
  }

  static Result<std::optional<MappedFile>> openSeal(const CodeBundle& code) {
    std::error_code failed;
    if (!code.isBundle() || !fs::exists(fs::symlink_status(code.sealPath(), failed))) {
      return std::optional<MappedFile>();
    }
    return MappedFile::open(code.sealPath()).map([](MappedFile file) {
      return std::optional(std::move(file));
    });
  }

  static std::optional<Complaint> checkIsSigned(const MachOFile& image) {
    for (const auto& slice : image.slices()) {
      if (slice.signature) continue;
      return complaint(Fault::unsignedCode, {}, image.isUniversal() ? slice.architecture : "");
    }
    return std::nullopt;
  }

  std::optional<Complaint> checkSlices(const CodeBundle& code, const MachOFile& image,
                                       const std::optional<Bytes>& seal, bool& meetsRequirement) {
    std::vector<CheckedSignature> checked;
    for (const auto& slice : image.slices()) {
      const Bytes bytes = image.bytesOf(slice);
      const auto infoPlist =
          code.infoPlist ? std::optional(code.infoPlist->bytes()) : coveredInfoPlist(image, slice);
      auto result = checkSignature({.slice = slice,
                                    .signature = image.signatureArea(slice),
                                    .code = {bytes.first(slice.signature->data.offset)},
                                    .takenHashes = {},
                                    .infoPlist = infoPlist,
                                    .resources = seal});
      if (!result) {
        return complaint(result.error(), Fault::invalidSignature, slice.architecture);
      }
      meetsRequirement = meetsRequirement && result->meetsRequirementOf(*result);
      checked.push_back(*std::move(result));
    }
    if (auto found = checkSameCode(checked)) return found;
    return checkCoverage(image);
  }

  std::optional<Complaint> checkSeal(const CodeBundle& code, const std::optional<Bytes>& seal,
                                     SealDifferences& found) {
    auto differences = compareWithSeal(code, seal, hasher_);
    if (!differences) return complaint(differences.error(), Fault::sealedResource);
    found = *std::move(differences);
    if (found.empty()) return std::nullopt;
    auto wrong = complaint(Fault::sealedResource);
    const auto list = [&](std::string_view what, const std::vector<std::string>& paths) {
      for (const auto& path : paths) {
        wrong.files.push_back(std::string(what) + ": " +
                              (code.base / path).lexically_normal().string());
      }
    };
    list("file added", found.added);
    list("file modified", found.modified);
    list("file missing", found.missing);
    return wrong;
  }

  /// The outer seal covers nested code's bytes, but not whether it is signed at all.
  std::optional<Complaint> checkNested(const fs::path& path) {
    const auto code = CodeBundle::open(path);
    if (!code) return complaint(code.error(), Fault::nestedCode);
    SealDifferences passedOver;
    if (options_.deep) return check(*code, passedOver);
    const auto opened = openImage(*code);
    if (!opened) return complaint(opened.error(), Fault::objectFormat);
    return checkIsSigned(opened->image);
  }

  /// The loose files, which the check of the seal found, then the bundles, innermost first. What
  /// lies in code that the seal names by its hash is left to the check of that code.
  static Result<std::vector<fs::path>> nestedCodeIn(const CodeBundle& code,
                                                    const SealDifferences& found) {
    const auto bundles = nestedBundles(code);
    if (!bundles) return bundles.error();
    std::vector<std::string> executables;
    for (const auto& path : *bundles) {
      if (const auto bundle = CodeBundle::open(path)) executables.push_back(bundle->executable);
    }
    std::vector<fs::path> nested;
    for (const auto& path : found.machOFiles) {
      if (!contains(executables, path) && isLooseCode(path)) nested.emplace_back(path);
    }
    nested.insert(nested.end(), found.codeByHash.begin(), found.codeByHash.end());
    for (const auto& path : *bundles) {
      const bool isElsewhere = std::ranges::any_of(found.codeByHash, [&](const std::string& other) {
        return path == other || path.native().starts_with(other + '/');
      });
      if (!isElsewhere) nested.push_back(path);
    }
    return nested;
  }

  const VerifyOptions& options_;
  FileHasher hasher_;
};

Verdict verdictOn(const std::string& name, const std::optional<Complaint>& found) {
  if (!found) {
    return {0, {name + ": valid on disk", name + ": satisfies its Designated Requirement"}, {}};
  }
  Verdict verdict{found->status, {name + ": " + found->reason}, found->files};
  const auto add = [&](std::string_view what, const std::string& value) {
    if (!value.empty()) verdict.statements.push_back(std::string(what) + ": " + value);
  };
  add("In subcomponent", found->subcomponent.string());
  add("In architecture", found->architecture);
  add("Cause", found->detail);
  return verdict;
}

}  // namespace

Verdict verify(const VerifyOptions& options) {
  const std::string name = options.code.string();
  std::error_code failed;
  if (!fs::exists(options.code, failed)) {
    return {kFailed, {name + ": No such file or directory"}, {}};
  }
  Verdict verdict = verdictOn(name, Verifier(options).checkTree(options.code));
  const auto intact = foundation::MappingGuard::checkAll();
  if (!intact) return {kFailed, {name + ": " + intact.error().localizedDescription()}, {}};
  return verdict;
}

}  // namespace toolchain
