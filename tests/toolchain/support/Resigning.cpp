#include "tests/toolchain/support/Resigning.h"

#include "foundation/crypto/DER.h"
#include "tests/support/Test.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/signature/EmbeddedSignature.h"
#include "toolchain/signature/Hashing.h"

namespace test {

namespace {

namespace DER = foundation::DER;
namespace slot = toolchain::slot;
using toolchain::CodeDirectory;

template <class T>
T required(Result<T> result) {
  if (!result) throw std::runtime_error(problemOf(result));
  return *std::move(result);
}

std::string directoryOf(const SignatureParts& parts, std::size_t index, Bytes code) {
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
  return std::string(textOf(toolchain::makeCodeDirectory(fields, special, pages[0].hashes)));
}

std::vector<foundation::CMS::Attribute> hashLists(const SignatureParts& parts,
                                                  const std::vector<std::string>& directories) {
  std::vector<CodeDirectory> listed;
  for (std::size_t i = 0; i < parts.listed.value_or(directories.size()); ++i) {
    listed.push_back(required(CodeDirectory::parse(bytesOf(directories[i]))));
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

std::string messageOf(const SignatureParts& parts, const std::vector<std::string>& directories,
                      const Family& family) {
  if (parts.message) return *parts.message;
  if (!parts.withAttributes) {
    return std::string(makeBareSignature(directories[0], family).text());
  }
  const auto message = required(foundation::CMS::signDetached(
      bytesOf(directories[0]), family.leaf.identity(), parts.certificates,
      std::chrono::sys_days{std::chrono::year{2026} / 3 / 9}, hashLists(parts, directories)));
  return std::string(message.text());
}

}  // namespace

SignatureParts takeApart(const std::filesystem::path& executable, std::size_t slice) {
  const std::string file = contentsOf(executable);
  const auto image = required(toolchain::MachOFile::parse(bytesOf(file)));
  const auto signature =
      required(toolchain::EmbeddedSignature::parse(image.signatureArea(image.slices().at(slice))));
  SignatureParts parts;
  for (const auto& entry : signature.blobs.entries()) {
    if (entry.slot > 0 && entry.slot < slot::kAlternateCodeDirectories) {
      parts.blobs.emplace(entry.slot, textOf(entry.bytes));
    }
  }
  for (const auto& directory : signature.directories) {
    parts.directories.push_back(directory.fields);
    auto& files = parts.files.emplace_back();
    for (const auto number : {slot::kInfoPlist, slot::kResources}) {
      const Bytes hash = directory.specialHash(number);
      if (foundation::isZero(hash)) continue;
      files.emplace(number, std::vector<std::byte>(hash.begin(), hash.end()));
    }
  }
  const auto wrapper = signature.blobs.find(slot::kSignature);
  if (!wrapper || wrapper->size() <= 8) return parts;
  const auto primary = *signature.blobs.find(slot::kCodeDirectory);
  parts.certificates =
      required(foundation::CMS::verifyDetached(wrapper->subspan(8), primary)).chain;
  return parts;
}

void putTogether(const std::filesystem::path& executable, const SignatureParts& parts,
                 const Family& family, std::size_t slice) {
  std::string file = contentsOf(executable);
  const auto image = required(toolchain::MachOFile::parse(bytesOf(file)));
  const auto& target = image.slices().at(slice);
  const Bytes code = image.bytesOf(target).first(target.signature->data.offset);
  std::vector<std::string> directories;
  for (std::size_t i = 0; i < parts.directories.size(); ++i) {
    directories.push_back(directoryOf(parts, i, code));
  }
  const auto wrapper = toolchain::makeBlob(toolchain::magic::kWrapper,
                                           bytesOf(messageOf(parts, directories, family)));
  std::vector<toolchain::BlobEntry> entries;
  for (std::size_t i = 0; i < directories.size(); ++i) {
    const auto number = i == 0
                            ? slot::kCodeDirectory
                            : slot::kAlternateCodeDirectories + static_cast<std::uint32_t>(i) - 1;
    entries.push_back({number, bytesOf(directories[i])});
  }
  for (const auto& [number, blob] : parts.blobs) entries.push_back({number, bytesOf(blob)});
  if (parts.withWrapper) entries.push_back({slot::kSignature, wrapper});
  const auto whole = toolchain::makeSuperBlob(toolchain::magic::kEmbeddedSignature, entries);
  keepForFuzzing("SignatureBlobs", whole);
  const auto area = target.signature->data;
  if (whole.size() > area.size) throw std::runtime_error("the signature outgrew its area");
  std::string padded(textOf(whole));
  padded.resize(area.size);
  file.replace(target.file.offset + area.offset, area.size, padded);
  std::ofstream(executable, std::ios::binary | std::ios::trunc) << file;
}

}  // namespace test
