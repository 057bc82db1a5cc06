#pragma once

#include <optional>
#include <vector>

#include "foundation/crypto/CMS.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/signature/CodeDirectory.h"
#include "toolchain/signature/RequirementEvaluation.h"

namespace toolchain {

/// Which slice of a universal file answers for the whole file. Slices of one file can be signed
/// differently; whoever asks about the file rather than about a slice must choose.
enum class SlicePolicy {
  /// The arm64 slice, which is what devices run; the first one in a file without it.
  deviceFirst,
  first,
};
const Slice& chosenSlice(const MachOFile& image, SlicePolicy policy);

/// The signature of one slice. Parsing checks its structure only; the functions named `checked…`
/// also check that its parts agree. Nothing here compares hashes with the code; see
/// `checkSignature`. Refers to the parsed bytes.
struct EmbeddedSignature {
  SuperBlob blobs;
  /// The primary, then the alternates in slot order; never empty, no hash type twice.
  std::vector<CodeDirectory> directories;

  /// `area` is what LC_CODE_SIGNATURE points to (`MachOFile::signatureArea`).
  static Result<EmbeddedSignature> parse(Bytes area, Gaps gaps = Gaps::refused);

  [[nodiscard]] const CodeDirectory& primary() const { return directories.front(); }
  /// The CodeDirectory that the kernel uses: the one of the strongest hash type.
  [[nodiscard]] const CodeDirectory& strongest() const;
  /// True for an ad-hoc signature that a linker added on its own; it says nothing about who made
  /// the code.
  [[nodiscard]] bool isLinkerSigned() const;

  /// Slot 5's property list as it was signed, else one made of slot 7; that of an empty dictionary
  /// without either.
  [[nodiscard]] Result<std::string> entitlementsText() const;
  /// The entitlements in slots 5 and 7; empty without. Fails when a form is malformed or the two
  /// describe different dictionaries.
  [[nodiscard]] Result<foundation::Dictionary> checkedEntitlements() const;
  /// The signer whose CMS covers the primary CodeDirectory and lists the hashes of all of them.
  /// Absent for an ad-hoc signature, which must have no CMS. Fails for a developer's certificate of
  /// another team. Does not check whether certificates are valid today, or who trusts the root.
  [[nodiscard]] Result<std::optional<foundation::CMS::Signer>> checkedSigner() const;
  /// Absent without one in slot 2. Fails when any requirement there is malformed.
  [[nodiscard]] Result<std::optional<requirement::Expression>> designatedRequirement() const;
};

/// Signed attributes of the CMS that list the hashes of all CodeDirectories: the cdhashes as the
/// array "cdhashes" of a property list, in slot order, and the full digests, one DER value
/// SEQUENCE { algorithm, digest } each.
inline constexpr std::string_view kCDHashListOID = "1.2.840.113635.100.9.1";
inline constexpr std::string_view kDigestListOID = "1.2.840.113635.100.9.2";
foundation::Array cdHashList(const std::vector<CodeDirectory>& directories);
std::vector<std::string> digestList(const std::vector<CodeDirectory>& directories);

}  // namespace toolchain
