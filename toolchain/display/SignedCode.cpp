#include "toolchain/display/private/SignedCode.h"

#include "foundation/file/FileManager.h"
#include "toolchain/common/SignatureFault.h"

namespace toolchain {

Result<SignedCode> SignedCode::open(const std::filesystem::path& path) {
  auto code = CodeBundle::open(path);
  if (!code) return code.error();
  auto opened = openImage(*code).mapError(asFault(Fault::objectFormat));
  if (!opened) return opened.error();
  SignedCode result{*std::move(code), *std::move(opened), std::nullopt};
  const Slice& slice = chosenSlice(result.opened.image, SlicePolicy::deviceFirst);
  if (!slice.signature) return result;
  return EmbeddedSignature::parse(result.opened.image.signatureArea(slice), Gaps::accepted)
      .mapError(asFault(Fault::invalidSignature))
      .map([&](EmbeddedSignature signature) {
        result.signature = std::move(signature);
        return std::move(result);
      });
}

Result<std::optional<ResourceSeal>> SignedCode::seal() const {
  if (!code.isBundle() || !foundation::FileManager::fileExistsAtPath(code.sealPath())) {
    return std::optional<ResourceSeal>();
  }
  return foundation::FileManager::contentsOfFile(code.sealPath())
      .andThen([](const foundation::Data& file) {
        return parseResourceSeal(file.bytes()).mapError(asFault(Fault::invalidResourceDirectory));
      })
      .map([](ResourceSeal seal) { return std::optional(std::move(seal)); });
}

}  // namespace toolchain
