#include "toolchain/sign/private/Replacement.h"

#include <algorithm>
#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/base/Assertion.h"
#include "foundation/base/Handle.h"
#include "foundation/base/WriteAll.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/MappingGuard.h"
#include "foundation/host/FileAttributes.h"
#include "foundation/host/FileCopying.h"
#include "foundation/host/FileOpening.h"
#include "foundation/process/ProcessInfo.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace fs = std::filesystem;
using foundation::FileDescriptor;
using foundation::fileError;

namespace {

/// Large files are written in steps of this size, so that the disk works while the next step is
/// prepared.
constexpr std::size_t kStep = std::size_t{8} << 20;

/// Writes the content; the kernel copies what lies in the source. 0, or an errno value.
int takeOver(int file, std::uint64_t offset, Bytes content, const MappedSource& source) {
  const std::byte* const start = source.bytes.data();
  const std::byte* const end = start + source.bytes.size();
  const bool isInSource = source.file >= 0 && std::greater_equal()(content.data(), start) &&
                          std::less_equal()(content.data() + content.size(), end);
  if (!isInSource) return foundation::writeAllAt(file, offset, content);
  const auto at = static_cast<std::uint64_t>(content.data() - start);
  int error = 0;
  const auto taken = foundation::copyRange(source.file, at, file, offset, content.size(), error);
  if (error != 0) return error;
  return foundation::writeAllAt(file, offset + taken, content.subspan(taken));
}

/// An item as its open folder and its name there. The folder was opened without following symlinks,
/// since another user may be able to change the tree while it is signed.
class Place {
 public:
  /// False, with errno set, when there is no such folder.
  explicit Place(const fs::path& item)
      : folder_(foundation::openFolder(item.parent_path(), foundation::Links::refused)),
        name_(item.filename()) {}

  explicit operator bool() const { return static_cast<bool>(folder_); }
  [[nodiscard]] int folder() const { return folder_.get(); }
  [[nodiscard]] const char* name() const { return name_.c_str(); }
  /// False, with errno set, on failure.
  [[nodiscard]] bool rename(const std::string& from, const std::string& to) const {
    return ::renameat(folder(), from.c_str(), folder(), to.c_str()) == 0;
  }

 private:
  FileDescriptor folder_;
  std::string name_;
};

void removeQuietly(const fs::path& item) {
  if (const Place place(item); place) {
    static_cast<void>(foundation::FileManager::removeItemInFolder(place.folder(), place.name()));
  }
}

}  // namespace

Result<> NewFile::write(std::uint64_t offset, Bytes bytes, const MappedSource& source) const {
  for (std::size_t done = 0; done < bytes.size(); done += kStep) {
    const Bytes step = bytes.subspan(done, std::min(kStep, bytes.size() - done));
    if (const int error = takeOver(file_.get(), offset + done, step, source)) {
      return fileError(error, "write", target_);
    }
    if (step.size() == kStep) foundation::beginFlush(file_.get(), offset + done, kStep);
  }
  return {};
}

Result<> NewFile::write(const std::vector<FilePart>& parts, const MappedSource& source) const {
  for (const FilePart& part : parts) {
    std::uint64_t offset = part.offset;
    for (const Bytes piece : part.content) {
      if (auto written = write(offset, piece, source); !written) return written;
      offset += piece.size();
    }
  }
  return ::fsync(file_.get()) == 0 ? Result<>() : fileError(errno, "write", target_);
}

Replacement::~Replacement() {
  for (const Prepared& one : prepared_) removeQuietly(one.temporary);
  for (auto step = done_.rbegin(); step != done_.rend(); ++step) {
    if (step->backup.empty()) {
      removeQuietly(step->target);
    } else if (const Place place(step->target); place) {
      const std::string backup = step->backup.filename();
      // When both are names of one file, the target never went away and rename does nothing.
      if (place.rename(backup, place.name())) ::unlinkat(place.folder(), backup.c_str(), 0);
    }
  }
  for (auto folder = madeFolders_.rbegin(); folder != madeFolders_.rend(); ++folder) {
    if (const Place place(*folder); place) {
      ::unlinkat(place.folder(), place.name(), AT_REMOVEDIR);
    }
  }
}

fs::path Replacement::besides(const fs::path& target) {
  fs::path path = target.parent_path() / (".sendoff-" + foundation::ProcessInfo::newUUIDString());
  own_.insert(path.native());
  return path;
}

/// A seal's folder may not exist yet.
Result<> Replacement::makeFolder(const fs::path& folder) {
  if (foundation::openFolder(folder, foundation::Links::refused) || errno != ENOENT) return {};
  const Place place(folder);
  constexpr mode_t kNewFolder = 0777;
  if (!place || ::mkdirat(place.folder(), place.name(), kNewFolder) != 0) {
    return fileError(errno, "make folder", folder);
  }
  madeFolders_.push_back(folder);
  return {};
}

Result<NewFile> Replacement::prepare(const fs::path& target, std::uint64_t size,
                                     const fs::path& model) {
  if (auto made = makeFolder(target.parent_path()); !made) return made.error();
  const Place place(target);
  if (!place && (errno == ENOTDIR || errno == ELOOP)) {
    return failure(target.parent_path().string() + " is not a folder");
  }
  if (!place) return fileError(errno, "write beside", target);
  const fs::path temporary = besides(target);
  constexpr mode_t kNewFile = 0666;
  FileDescriptor file(::openat(place.folder(), temporary.filename().c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kNewFile));
  if (!file) return fileError(errno, "write beside", target);
  prepared_.push_back({target, temporary});
  // Opening a pipe without O_NONBLOCK would wait for a writer.
  constexpr int kReading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const FileDescriptor old(model.empty() ? ::openat(place.folder(), place.name(), kReading)
                                         : ::open(model.c_str(), kReading));
  if (old) {
    const fs::path& like = model.empty() ? target : model;
    const auto copied = foundation::copyAttributes(old.get(), file.get(), like.native());
    if (!copied) return copied.error();
  }
  if (::ftruncate(file.get(), static_cast<off_t>(size)) != 0)
    return fileError(errno, "write", target);
  return NewFile(target, temporary, std::move(file));
}

Result<NewFile> Replacement::prepare(const fs::path& target, const Pieces& content,
                                     const fs::path& model) {
  return prepare(target, sizeOf(content), model).andThen([&](NewFile file) {
    return file.write({{0, content}}).map([&] { return std::move(file); });
  });
}

/// A second name for the old file, so that it can be restored; empty when there is no old file.
Result<fs::path> Replacement::keepOld(const fs::path& target) {
  const Place place(target);
  if (!place) return fileError(errno, "keep", target);
  const fs::path backup = besides(target);
  const std::string name = backup.filename();
  if (::linkat(place.folder(), place.name(), place.folder(), name.c_str(), 0) == 0) return backup;
  if (errno == ENOENT) {
    own_.erase(backup.native());
    return fs::path();
  }
  // Not every file system has hard links.
  if (place.rename(place.name(), name)) return backup;
  return fileError(errno, "keep", target);
}

Result<> Replacement::commit(const std::vector<fs::path>& targets) {
  // What was prepared may come from a mapped file that was truncated meanwhile.
  if (auto intact = foundation::MappingGuard::checkAll(); !intact) return intact;
  for (const fs::path& target : targets) {
    const auto one = std::ranges::find(prepared_, target, &Prepared::target);
    foundation::assertThat(one != prepared_.end(), "the target was prepared",
                           {__func__, "Replacement.cpp", __LINE__});
    auto backup = keepOld(target);
    if (!backup) return backup.error();
    const Place place(target);
    const bool isMoved = place && place.rename(one->temporary.filename(), place.name());
    const int error = errno;
    done_.push_back({target, std::move(*backup)});
    if (!isMoved) return fileError(error, "replace", target);
    own_.erase(one->temporary.native());
    prepared_.erase(one);
  }
  return {};
}

Result<> Replacement::remove(const fs::path& target) {
  const fs::path backup = besides(target);
  const Place place(target);
  if (!place || !place.rename(place.name(), backup.filename())) {
    return fileError(errno, "remove", target);
  }
  done_.push_back({target, backup});
  return {};
}

void Replacement::finish() {
  for (const Step& step : done_) {
    if (!step.backup.empty()) removeQuietly(step.backup);
    own_.erase(step.backup.native());
  }
  done_.clear();
  madeFolders_.clear();
}

}  // namespace toolchain
