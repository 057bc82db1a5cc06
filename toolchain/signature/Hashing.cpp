#include "toolchain/signature/Hashing.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>

#include "foundation/host/FileOpening.h"
#include "toolchain/common/Parallel.h"
#include "toolchain/image/MachOFile.h"

namespace toolchain {

namespace {

constexpr std::size_t kBytesPerTurn = std::size_t{1} << 20;
constexpr std::size_t kFilesPerTurn = 8;
constexpr std::size_t kReadBuffer = std::size_t{256} << 10;

/// Calls `take` with the pieces of [offset, offset + size).
template <class Take>
void forWindow(const Pieces& code, std::uint64_t offset, std::uint64_t size, const Take& take) {
  for (const Bytes& piece : code) {
    if (size == 0) return;
    if (offset >= piece.size()) {
      offset -= piece.size();
      continue;
    }
    const std::uint64_t n = std::min<std::uint64_t>(size, piece.size() - offset);
    take(piece.subspan(offset, n));
    size -= n;
    offset = 0;
  }
}

/// Hashes pages into the shared result; one per thread.
class PageWorker {
 public:
  PageWorker(const Pieces& code, std::uint8_t pageShift, std::vector<PageHashes>& out)
      : code_(code), total_(sizeOf(code)), pageShift_(pageShift), out_(out) {
    for (const PageHashes& hashes : out) digests_.emplace_back(digestKind(hashes.type));
  }

  void hash(std::size_t begin, std::size_t end) {
    for (std::size_t page = begin; page < end; ++page) {
      const std::uint64_t offset = pageShift_ == 0 ? 0 : std::uint64_t{page} << pageShift_;
      const std::uint64_t left = total_ - offset;
      hashPage(page, offset,
               pageShift_ == 0 ? left : std::min(left, std::uint64_t{1} << pageShift_));
    }
  }

 private:
  void hashPage(std::size_t page, std::uint64_t offset, std::uint64_t size) {
    for (std::size_t i = 0; i < out_.size(); ++i) {
      foundation::Digest& digest = digests_[i];
      digest.reset();
      forWindow(code_, offset, size, [&](Bytes piece) { digest.update(piece); });
      std::array<std::byte, 48> hash{};
      digest.finish(hash);
      const std::size_t stored = hashSize(out_[i].type);
      std::copy_n(hash.begin(), stored,
                  out_[i].hashes.begin() + static_cast<std::ptrdiff_t>(page * stored));
    }
  }

  const Pieces& code_;
  std::uint64_t total_;
  std::uint8_t pageShift_;
  std::vector<PageHashes>& out_;
  std::vector<foundation::Digest> digests_;
};

/// Reads whole files into both digests; one per thread.
class FileWorker {
 public:
  /// The system's error number, 0 for none.
  int hash(const std::string& path, FileDigests& out) {
    sha1_.reset();
    sha256_.reset();
    const auto file = foundation::openFile(path, O_RDONLY | O_NONBLOCK, foundation::Links::refused);
    if (!file) return errno;
    for (bool isFirst = true;; isFirst = false) {
      const ssize_t n = ::read(file.get(), buffer_.data(), buffer_.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errno;
      if (n == 0) break;
      const Bytes piece(buffer_.data(), static_cast<std::size_t>(n));
      if (isFirst) out.looksLikeMachO = looksLikeMachO(piece);
      sha1_.update(piece);
      sha256_.update(piece);
    }
    sha1_.finish(out.sha1);
    sha256_.finish(out.sha256);
    return 0;
  }

 private:
  foundation::Digest sha1_{foundation::DigestKind::sha1};
  foundation::Digest sha256_{foundation::DigestKind::sha256};
  std::vector<std::byte> buffer_ = std::vector<std::byte>(kReadBuffer);
};

}  // namespace

std::vector<PageHashes> hashPages(const Pieces& code, std::uint8_t pageShift,
                                  std::span<const HashType> types) {
  const std::uint64_t pages = pageCount(sizeOf(code), pageShift);
  std::vector<PageHashes> result;
  for (const HashType type : types) {
    result.push_back({type, pageShift, std::vector<std::byte>(pages * hashSize(type))});
  }
  const std::size_t grain = std::max<std::size_t>(1, kBytesPerTurn >> pageShift);
  inParallel(pages, grain, [&] {
    return [worker = std::make_shared<PageWorker>(code, pageShift, result)](
               std::size_t begin, std::size_t end) { worker->hash(begin, end); };
  });
  return result;
}

Result<std::vector<FileDigests>> FileHasher::digests(std::span<const std::string> paths) {
  std::vector<FileDigests> result(paths.size());
  std::vector<std::size_t> unread;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const auto known = known_.find(paths[i]);
    if (known == known_.end()) {
      unread.push_back(i);
    } else {
      result[i] = known->second;
    }
  }
  std::vector<int> errors(unread.size());
  inParallel(unread.size(), kFilesPerTurn, [&] {
    return [&, worker = std::make_shared<FileWorker>()](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        errors[i] = worker->hash(paths[unread[i]], result[unread[i]]);
      }
    };
  });
  for (std::size_t i = 0; i < unread.size(); ++i) {
    const std::string& path = paths[unread[i]];
    if (errors[i] != 0) return foundation::posixError(errors[i], "cannot read " + path, path);
    known_.emplace(path, result[unread[i]]);
  }
  return result;
}

}  // namespace toolchain
