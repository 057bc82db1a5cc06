#include "tests/toolchain/verify/Resigning.h"

#include "foundation/crypto/DER.h"
#include "tests/support/Test.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Hashing.h"

namespace test {

namespace {

namespace DER = foundation::DER;
namespace slot = toolchain::slot;
using Blob = std::vector<std::byte>;

Blob directoryOf(const SignatureParts& parts, std::size_t index, Bytes code) {
  const auto& fields = parts.directories[index];
  const std::array types{fields.hashType};
  toolchain::SpecialHashes special = parts.files[index];
  for (const auto& [number, blob] : parts.blobs) {
    special[number] = toolchain::hashOf(bytesOf(blob), fields.hashType);
  }
  for (const auto number : parts.dangling) {
    special[number] = toolchain::hashOf({}, fields.hashType);
  }
  for (const auto number : parts.uncovered) special.erase(number);
  const auto limit = std::min<std::uint64_t>(fields.codeLimit, code.size());
  const auto pages = toolchain::hashPages({code.first(limit)}, fields.pageShift, types);
  return toolchain::makeCodeDirectory(fields, special, pages[0].hashes);
}

std::vector<foundation::CMS::Attribute> hashLists(const SignatureParts& parts,
                                                  const std::vector<Blob>& directories) {
  std::vector<toolchain::CodeDirectory> listed;
  for (std::size_t i = 0; i < parts.listed.value_or(directories.size()); ++i) {
    listed.push_back(*toolchain::CodeDirectory::parse(directories[i]));
  }
  std::vector<foundation::CMS::Attribute> lists;
  const auto value = parts.hashPlist.value_or(
      DER::element(DER::kOctetString, plist({{"cdhashes", toolchain::cdHashList(listed)}})));
  if (!value.empty()) lists.push_back({std::string(toolchain::kCDHashListOID), {Data(value)}});
  if (parts.withHashList) {
    const auto digests = toolchain::digestList(listed);
    lists.push_back({std::string(toolchain::kDigestListOID), {digests.begin(), digests.end()}});
  }
  return lists;
}

Data messageOf(const SignatureParts& parts, const std::vector<Blob>& directories,
               const Family& family) {
  if (parts.message) return Data(*parts.message);
  if (!parts.withAttributes) return makeBareSignature(textOf(directories[0]), family);
  return *foundation::CMS::signDetached(directories[0], family.leaf.identity(), parts.certificates,
                                        std::chrono::sys_days{std::chrono::year{2026} / 3 / 9},
                                        hashLists(parts, directories));
}

}  // namespace

SignatureParts takeApart(const fs::path& executable, std::size_t slice) {
  const std::string file = contentsOf(executable);
  const auto image = toolchain::MachOFile::parse(bytesOf(file));
  const auto signature =
      toolchain::EmbeddedSignature::parse(image->signatureArea(image->slices().at(slice)));
  SignatureParts parts;
  for (const auto& entry : signature->blobs.entries()) {
    if (entry.slot > 0 && entry.slot < slot::kAlternateCodeDirectories) {
      parts.blobs.emplace(entry.slot, textOf(entry.bytes));
    }
  }
  for (const auto& directory : signature->directories) {
    parts.directories.push_back(directory.fields);
    auto& files = parts.files.emplace_back();
    for (const auto number : {slot::kInfoPlist, slot::kResources}) {
      const Bytes hash = directory.specialHash(number);
      if (!foundation::isZero(hash)) files.emplace(number, Blob(hash.begin(), hash.end()));
    }
  }
  parts.certificates = (*signature->checkedSigner())->chain;
  return parts;
}

void putTogether(const fs::path& executable, const SignatureParts& parts, const Family& family,
                 std::size_t slice) {
  std::string file = contentsOf(executable);
  const auto image = toolchain::MachOFile::parse(bytesOf(file));
  const auto& target = image->slices().at(slice);
  const auto area = target.signature->data;
  std::vector<Blob> directories;
  for (std::size_t i = 0; i < parts.directories.size(); ++i) {
    directories.push_back(directoryOf(parts, i, image->bytesOf(target).first(area.offset)));
  }
  const auto wrapper = toolchain::makeBlob(toolchain::magic::kWrapper,
                                           messageOf(parts, directories, family).bytes());
  std::vector<toolchain::BlobEntry> entries = {{slot::kCodeDirectory, directories[0]}};
  for (std::uint32_t i = 1; i < directories.size(); ++i) {
    entries.push_back({slot::kAlternateCodeDirectories + i - 1, directories[i]});
  }
  for (const auto& [number, blob] : parts.blobs) entries.push_back({number, bytesOf(blob)});
  if (parts.withWrapper) entries.push_back({slot::kSignature, wrapper});
  const auto whole = toolchain::makeSuperBlob(toolchain::magic::kEmbeddedSignature, entries);
  ASSERT_LE(whole.size(), area.size);
  std::string padded(textOf(keepForFuzzing("SignatureBlobs", whole)));
  padded.resize(area.size);
  writeFile(executable, file.replace(target.file.offset + area.offset, area.size, padded));
}

}  // namespace test
