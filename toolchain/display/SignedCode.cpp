#include "toolchain/display/private/SignedCode.h"

#include <algorithm>
#include <system_error>

#include "foundation/file/FileManager.h"
#include "toolchain/common/SignatureFault.h"

namespace toolchain {

namespace {

std::size_t speakingSlice(const MachOFile& image) {
  const auto& slices = image.slices();
  const auto at = std::find_if(slices.begin(), slices.end(),
                               [](const Slice& slice) { return slice.architecture == "arm64"; });
  return at == slices.end() ? 0 : static_cast<std::size_t>(at - slices.begin());
}

}  // namespace

Result<SignedCode> SignedCode::open(const std::filesystem::path& path) {
  auto code = CodeBundle::open(path);
  if (!code) return code.error();
  auto opened = openImage(*code);
  if (!opened) {
    return faultError(Fault::objectFormat, opened.error().localizedDescription());
  }
  SignedCode result{*std::move(code), *std::move(opened), 0, std::nullopt, {}};
  result.sliceIndex = speakingSlice(result.opened.image);
  if (!result.slice().signature) return result;

  auto signature = SuperBlob::parse(result.opened.image.signatureArea(result.slice()),
                                    magic::kEmbeddedSignature, Gaps::accepted);
  if (!signature) {
    return faultError(Fault::invalidSignature, signature.error().localizedDescription());
  }
  auto directories = codeDirectories(*signature);
  if (!directories) {
    return faultError(Fault::invalidSignature, directories.error().localizedDescription());
  }
  result.signature = *std::move(signature);
  result.directories = *std::move(directories);
  return result;
}

Result<std::optional<ResourceSeal>> SignedCode::seal() const {
  if (!code.isBundle() || !foundation::FileManager::fileExistsAtPath(code.sealPath())) {
    return std::optional<ResourceSeal>();
  }
  const auto file = foundation::FileManager::contentsOfFile(code.sealPath());
  if (!file) return file.error();
  auto seal = parseResourceSeal(file->bytes());
  if (!seal) {
    return faultError(Fault::invalidResourceDirectory, seal.error().localizedDescription());
  }
  return std::optional(*std::move(seal));
}

}  // namespace toolchain
