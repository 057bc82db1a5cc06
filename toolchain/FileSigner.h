#pragma once

#include <optional>
#include <vector>

#include "toolchain/CodeBundle.h"
#include "toolchain/Layout.h"
#include "toolchain/Replacement.h"
#include "toolchain/SignatureBuilder.h"

namespace toolchain {

/// Signs one executable: layout, page hashes, signatures, new file, and a look at the result with
/// the verifier's eyes. Refers to the image and the content, which must outlive it.
class FileSigner {
 public:
  FileSigner(const Image& image, SignatureContent content);

  /// Takes the hashes that do not depend on the seal. Fails as `layOut` does.
  Result<> hashCode();
  /// The seal and Info.plist, which the signatures cover; call before `writeBeside`.
  void cover(std::optional<Bytes> infoPlist, std::optional<Bytes> resources);
  /// Makes the signatures and prepares the new file in `replacement`, checked.
  Result<> writeBeside(const std::filesystem::path& executable, Replacement& replacement);

 private:
  [[nodiscard]] SignatureContent contentFor(const Slice& slice) const;
  Result<std::vector<std::vector<std::byte>>> signatures() const;
  Result<> check(const std::filesystem::path& written) const;

  const Image& image_;
  SignatureContent content_;
  FileLayout layout_;
  /// By slice.
  std::vector<std::vector<PageHashes>> hashes_;
};

}  // namespace toolchain
