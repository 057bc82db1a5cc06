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

/// Signs one executable: layout, page hashes, signatures, new file, and a look at the result with
/// the verifier's eyes. Refers to the image and the content, which must outlive it.
class FileSigner {
 public:
  FileSigner(const OpenedImage& opened, SignatureContent content);

  /// Decides where everything goes. Fails as `layOut` does.
  Result<> layOut();
  /// Begins the new file beside the executable and takes the hashes that do not depend on the seal,
  /// both at a time.
  Result<> writeCode(const std::filesystem::path& executable, Replacement& replacement);
  /// The seal and Info.plist, which the signatures cover; call before `writeSignatures`.
  void cover(std::optional<Bytes> infoPlist, std::optional<Bytes> resources);
  /// Completes the new file and checks it; `replacement` then has it ready.
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
  /// Writes the code; outlived by all that it reads.
  std::future<Result<>> writing_;
};

}  // namespace toolchain
