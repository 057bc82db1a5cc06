#include "toolchain/sign/private/FileSigner.h"

#include "toolchain/common/Messages.h"
#include "toolchain/verify/SignatureCheck.h"

namespace toolchain {

FileSigner::FileSigner(const OpenedImage& opened, SignatureContent content)
    : image_(opened.image),
      source_{opened.descriptor.get(), opened.image.file()},
      content_(std::move(content)) {
  content_.hashTypes = hashTypesFor(image_);
}

void FileSigner::cover(std::optional<Bytes> infoPlist, std::optional<Bytes> resources) {
  content_.infoPlist = infoPlist;
  content_.resources = resources;
}

/// A loose file's Info.plist is embedded in each slice.
SignatureContent FileSigner::contentFor(const Slice& slice) const {
  SignatureContent content = content_;
  if (!content.infoPlist) content.infoPlist = image_.embeddedInfoPlist(slice);
  return content;
}

Result<> FileSigner::layOut() {
  std::vector<SliceLayout> slices;
  for (const Slice& slice : image_.slices()) {
    auto layout = signatureOffset(image_, slice)
                      .andThen([&](std::uint64_t codeLimit) {
                        const SignatureContent content = contentFor(slice);
                        const SignatureBuilder builder(content, slice, codeLimit);
                        return toolchain::layOut(image_, slice, builder.room());
                      })
                      .mapError(withinSlice(image_, slice));
    if (!layout) return layout.error();
    slices.push_back(std::move(*layout));
  }
  return layOutFile(image_, std::move(slices)).map([this](FileLayout layout) {
    layout_ = std::move(layout);
  });
}

Result<> FileSigner::writeCode(const std::filesystem::path& executable, Replacement& replacement) {
  auto file = replacement.prepare(executable, fileSize(layout_));
  if (!file) return file.error();
  file_ = std::move(*file);
  writing_ =
      std::async(std::launch::async, [this] { return file_->write(codeParts(layout_), source_); });
  for (std::size_t i = 0; i < image_.slices().size(); ++i) {
    hashes_.push_back(
        hashPages(layout_.slices[i].code(), pageShiftFor(image_.slices()[i]), content_.hashTypes));
  }
  return {};
}

Result<std::vector<std::vector<std::byte>>> FileSigner::signatures() const {
  std::vector<std::vector<std::byte>> result;
  for (std::size_t i = 0; i < image_.slices().size(); ++i) {
    const Slice& slice = image_.slices()[i];
    const SignatureContent content = contentFor(slice);
    auto signature = SignatureBuilder(content, slice, layout_.slices[i].codeLimit)
                         .build(hashes_[i])
                         .mapError(withinSlice(image_, slice));
    if (!signature) return signature.error();
    result.push_back(std::move(*signature));
  }
  return result;
}

Result<> FileSigner::writeSignatures() {
  const auto made = signatures();
  if (!made) return made.error();
  std::vector<FilePart> parts;
  for (std::size_t i = 0; i < made->size(); ++i) {
    const SliceLayout& slice = layout_.slices[i];
    parts.push_back({slice.fileOffset + slice.codeLimit, {(*made)[i]}});
  }
  return writing_.get().andThen([&] { return file_->write(parts); }).andThen([this] {
    return check(file_->path());
  });
}

Result<> FileSigner::check(const std::filesystem::path& written) const {
  const auto file = foundation::MappedFile::open(written, foundation::Links::refused);
  if (!file) return file.error();
  const auto image =
      MachOFile::parse(file->bytes()).mapError(within("the new file does not verify"));
  if (!image) return image.error();
  for (std::size_t i = 0; i < image->slices().size(); ++i) {
    const Slice& slice = image->slices()[i];
    const SignatureContent content = contentFor(image_.slices()[i]);
    const Bytes code = image->bytesOf(slice).first(slice.signature->data.offset);
    const auto checked = checkSignature({.slice = slice,
                                         .signature = image->signatureArea(slice),
                                         .code = {code},
                                         .takenHashes = hashes_[i],
                                         .infoPlist = content.infoPlist,
                                         .resources = content.resources,
                                         .isAppleRoot = isNamedLikeAppleRoot});
    if (!checked) return within("the new signature does not verify", checked.error());
    if (!checked->meetsRequirementOf(*checked)) {
      return failure("the new signature does not satisfy its own requirement");
    }
  }
  return {};
}

}  // namespace toolchain
