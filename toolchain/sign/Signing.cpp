#include "toolchain/sign/Signing.h"

#include <algorithm>
#include <chrono>

#include "foundation/file/FileManager.h"
#include "foundation/process/ProcessInfo.h"
#include "package/AppPackage.h"
#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/seal/ResourceSeal.h"
#include "toolchain/seal/SealComparison.h"
#include "toolchain/seal/SealContents.h"
#include "toolchain/sign/private/FileSigner.h"
#include "toolchain/signature/EmbeddedSignature.h"

namespace toolchain {

namespace fs = std::filesystem;

namespace {

/// Flags that follow from how the code is signed; an Info.plist cannot ask for them.
constexpr std::int64_t kOwnFlags = codeflag::kAdHoc | codeflag::kRuntime | codeflag::kLinkerSigned;

bool isLinkerSigned(const MachOFile& image, const Slice& slice) {
  const auto signature = EmbeddedSignature::parse(image.signatureArea(slice), Gaps::accepted);
  return signature && signature->isLinkerSigned();
}

/// True when any slice carries a signature that is not the linker's.
bool isSigned(const MachOFile& image) {
  return std::ranges::any_of(image.slices(), [&](const Slice& slice) {
    return slice.signature && !isLinkerSigned(image, slice);
  });
}

/// Decided by the first slice. Any slice that is not one is signed without entitlements anyway.
bool isMainExecutable(const MachOFile& image) {
  return chosenSlice(image, SlicePolicy::first).isMainExecutable();
}

std::uint32_t flagsFrom(const CodeBundle& code) {
  const foundation::Value* value = foundation::find(code.info, "CSFlags");
  const auto number = value ? value->integerValue() : std::nullopt;
  return number ? static_cast<std::uint32_t>(*number & codeflag::kKnown & ~kOwnFlags) : 0;
}

/// One run over a piece of code and what is nested in it.
class Signer {
 public:
  explicit Signer(const SignOptions& options)
      : options_(options), signingTime_(options.signingTime.value_or(foundation::currentDate())) {}

  Result<> run() {
    auto done =
        CodeBundle::open(options_.code)
            .andThen([this](const CodeBundle& code) {
              return prepare(code).andThen([&] { return signNestedBundles(code); }).andThen([&] {
                return signUnit(code, entitlements_);
              });
            })
            .mapError(within(options_.code.string()));
    if (done) replacement_.finish();
    return done;
  }

 private:
  /// Finds whatever can be found wrong before any file is touched.
  Result<> prepare(const CodeBundle& code) {
    const auto opened = openImage(code);
    if (!opened) return opened.error();
    for (const Slice& slice : opened->image.slices()) {
      const auto offset = signatureOffset(opened->image, slice)
                              .mapError(withinSlice(opened->image, slice))
                              .mapError(within(code.executable.string()));
      if (!offset) return offset.error();
    }
    if (isSigned(opened->image)) {
      if (!options_.force) return failure("is already signed");
      note(code.name + ": replacing existing signature");
    }
    return readEntitlements(opened->image).andThen([&] { return selectIdentity(code); });
  }

  Result<> readEntitlements(const MachOFile& image) {
    if (!options_.entitlements || !isMainExecutable(image)) return {};
    return foundation::FileManager::contentsOfFile(*options_.entitlements)
        .andThen([this](const foundation::Data& file) {
          return parseEntitlements(file.bytes()).mapError(within(options_.entitlements->string()));
        })
        .map([this](Entitlements entitlements) { entitlements_ = std::move(entitlements); });
  }

  Result<> selectIdentity(const CodeBundle& code) {
    if (options_.identity == "-") return {};
    IdentityQuery query{.name = options_.identity, .keychain = options_.keychain};
    if (code.isBundle()) {
      const auto profile = package::AppPackage(code.base).profile();
      if (!profile) return profile.error();
      if (*profile) query.profileCertificates = (*profile)->certificates();
    }
    return findIdentity(query).map(
        [this](SigningIdentity identity) { identity_ = std::move(identity); });
  }

  /// Innermost first. A nested bundle that is left as is keeps its contents too, since its own seal
  /// covers them.
  Result<> signNestedBundles(const CodeBundle& code) {
    if (!code.isBundle()) return {};
    const auto nested = nestedBundles(code);
    if (!nested) return nested.error();
    std::vector<fs::path> kept;
    for (auto path = nested->rbegin(); path != nested->rend(); ++path) {
      const auto needed = needsSignature(*path);
      if (!needed) return needed.error();
      if (!*needed) kept.push_back(*path);
    }
    const FolderSet staying(kept);
    for (const fs::path& path : *nested) {
      if (staying.countAround(path.native() + '/') > 0) continue;
      auto done = signNestedBundle(path).mapError(within(path.string()));
      if (!done) return done;
    }
    return {};
  }

  Result<bool> needsSignature(const fs::path& path) {
    if (options_.deep) return true;
    return CodeBundle::openInside(path)
        .mapError(within(path.string()))
        .andThen(openImage)
        .map([](const OpenedImage& opened) { return !isSigned(opened.image); });
  }

  Result<> signNestedBundle(const fs::path& path) {
    const auto code = CodeBundle::openInside(path);
    if (!code) return code.error();
    return openImage(*code)
        .andThen([&](const OpenedImage& opened) {
          noteNested(path, opened.image);
          return entitlementsOfNested(*code, opened.image);
        })
        .andThen([&](const auto& entitlements) { return signUnit(*code, entitlements); });
  }

  void noteNested(const fs::path& path, const MachOFile& image) {
    note(path.string() + (isSigned(image) ? ": replacing existing signature"
                                          : ": is not signed, signing it first"));
  }

  static Result<std::optional<Entitlements>> entitlementsOfNested(const CodeBundle& code,
                                                                  const MachOFile& image) {
    using Made = std::optional<Entitlements>;
    if (!isMainExecutable(image)) return Made();
    return package::AppPackage(code.base).profile().andThen([&](const auto& profile) {
      if (!profile) return Result(Made());
      return makeEntitlements(profile->entitlementsFor(code.identifier)).map([](Entitlements made) {
        return Made(std::move(made));
      });
    });
  }

  [[nodiscard]] SignatureContent contentOf(const CodeBundle& code,
                                           const std::optional<Entitlements>& entitlements) const {
    SignatureContent content;
    content.identifier = code.identifier;
    content.flags = flagsFrom(code);
    content.isSealed = code.isBundle();
    content.signingTime = signingTime_;
    content.entitlements = entitlements;
    if (identity_) {
      content.identity = &*identity_;
      content.teamIdentifier =
          identity_->identity.certificate.subjectValue(foundation::kOIDOrganizationalUnitName)
              .value_or("");
    }
    return content;
  }

  /// Seals and signs one bundle or file, after its nested bundles.
  Result<> signUnit(const CodeBundle& code, const std::optional<Entitlements>& entitlements) {
    const auto opened = openImage(code);
    if (!opened) return opened.error();
    FileSigner signer(*opened, contentOf(code, entitlements));
    auto begun = signer.layOut().mapError(within(code.executable.string())).andThen([&] {
      return signer.writeCode(code.executable, replacement_);
    });
    if (!begun) return begun;
    std::string seal;
    if (code.isBundle()) {
      auto made = sealOf(code, opened->image);
      if (!made) return made.error();
      seal = std::move(*made);
      signer.cover(code.infoPlist->bytes(), foundation::bytesOf(seal));
      const auto written = replacement_.prepare(code.sealPath(), {foundation::bytesOf(seal)});
      if (!written) return written.error();
    }
    return signer.writeSignatures().andThen([&] { return replace(code); });
  }

  /// The seal goes first, the executable last.
  Result<> replace(const CodeBundle& code) {
    std::vector<fs::path> targets = {code.executable};
    if (code.isBundle()) targets.insert(targets.begin(), code.sealPath());
    if (auto committed = replacement_.commit(targets); !committed) return committed;
    hasher_.forget(code.executable.native());
    if (!code.isBundle()) return {};
    hasher_.forget(code.sealPath().native());
    return removeLeftovers(code.sealPath());
  }

  /// Nothing but the seal belongs in its folder.
  Result<> removeLeftovers(const fs::path& seal) {
    const auto names = foundation::FileManager::contentsOfDirectoryAtPath(seal.parent_path());
    if (!names) return names.error();
    for (const std::string& name : *names) {
      const fs::path path = seal.parent_path() / name;
      if (path == seal || replacement_.owns(path.native())) continue;
      if (auto removed = replacement_.remove(path); !removed) return removed;
    }
    return {};
  }

  Result<std::string> sealOf(const CodeBundle& code, const MachOFile& image) {
    SealOptions options;
    options.rules = defaultResourceRules(code.shape());
    options.sha1InFiles2 = hashTypesFor(image).front() == HashType::sha1;
    options.ignore = [this](const std::string& path) { return replacement_.owns(path); };
    const auto contents = SealContents::collect(code, options);
    if (!contents) return contents.error();
    if (const auto done = signLooseCode(code, contents->files()); !done) return done.error();
    for (const std::string& path : contents->codeByHash()) {
      if (const auto done = signLooseFile(path); !done) return done.error();
    }
    return contents->seal(hasher_).andThen([](const ResourceSeal& seal) { return text(seal); });
  }

  /// Mach-O files among the resources, found by the read that also hashes them for the seal.
  Result<> signLooseCode(const CodeBundle& code, const std::vector<std::string>& files) {
    const auto digests = hasher_.digests(files);
    if (!digests) return digests.error();
    std::optional<FolderSet> bundles;
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (!(*digests)[i].looksLikeMachO) continue;
      if (!bundles) {
        auto found = nestedBundles(code);
        if (!found) return found.error();
        bundles.emplace(*found);
      }
      if (bundles->countAround(files[i]) > 0 || !isLooseCode(files[i])) continue;
      if (auto done = signLooseFile(files[i]); !done) return done;
    }
    return {};
  }

  Result<> signLooseFile(const fs::path& path) {
    return CodeBundle::openInside(path)
        .andThen([&](const CodeBundle& code) -> Result<> {
          const auto opened = openImage(code);
          if (!opened) return opened.error();
          if (!options_.deep && isSigned(opened->image)) return {};
          noteNested(path, opened->image);
          return signUnit(code, std::nullopt);
        })
        .mapError(within(path.string()));
  }

  void note(const std::string& text) const {
    if (options_.note) options_.note(text);
  }

  const SignOptions& options_;
  foundation::Date signingTime_;
  std::optional<Entitlements> entitlements_;
  std::optional<SigningIdentity> identity_;
  FileHasher hasher_;
  Replacement replacement_;
};

}  // namespace

Result<> sign(const SignOptions& options) { return Signer(options).run(); }

Result<std::optional<foundation::Date>> sourceDateEpoch() {
  const auto text = foundation::ProcessInfo::environmentValue("SOURCE_DATE_EPOCH");
  if (!text) return std::optional<foundation::Date>();
  const auto seconds = wholeNumber<std::int64_t>(*text);
  constexpr std::int64_t kLast = 253402300799;  // the last second of the year 9999
  if (!seconds || *seconds < 0 || *seconds > kLast) {
    return failure("SOURCE_DATE_EPOCH: \"" + *text + "\" is not a number of seconds");
  }
  return std::optional<foundation::Date>(std::chrono::sys_seconds(std::chrono::seconds(*seconds)));
}

}  // namespace toolchain
