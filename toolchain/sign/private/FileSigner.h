#pragma once

#include <future>
#include <optional>
#include <vector>

#include "toolchain/bundle/CodeBundle.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/sign/private/Replacement.h"
#include "toolchain/sign/private/SignatureBuilder.h"

namespace toolchain {

/// For `Result::mapError`: names the slice that an error is about, in a file of several.
inline auto withinSlice(const MachOFile& image, const Slice& slice) {
  return [&](const foundation::Error& error) {
    return image.isUniversal() ? within(slice.architecture, error) : error;
  };
}

/// Signs one executable: layout, page hashes, signatures, new file, and a verification of the
/// result. Refers to the image and the content, which must outlive it.
class FileSigner {
 public:
  FileSigner(const OpenedImage& opened, SignatureContent content);

  /// Fails as `toolchain::layOut` does.
  Result<> layOut();
  /// Begins the new file beside the executable and, meanwhile, hashes the pages.
  Result<> writeCode(const std::filesystem::path& executable, Replacement& replacement);
  /// Sets what the signatures cover beside the code; call before `writeSignatures`.
  void cover(std::optional<Bytes> infoPlist, std::optional<Bytes> resources);
  /// Completes the new file and verifies it; then the replacement can commit it.
  Result<> writeSignatures();

 private:
  [[nodiscard]] SignatureContent contentFor(const Slice& slice) const;
  Result<std::vector<std::vector<std::byte>>> signatures() const;
  Result<> check(const std::filesystem::path& written) const;

  const MachOFile& image_;
  MappedSource source_;
  SignatureContent content_;
  FileLayout layout_;
  /// By slice.
  std::vector<std::vector<PageHashes>> hashes_;
  std::optional<NewFile> file_;
  /// Writes the code. The last member, so that what it reads lives until it is done.
  std::future<Result<>> writing_;
};

}  // namespace toolchain
