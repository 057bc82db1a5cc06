#pragma once

#include <string>

#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

namespace foundation {

/// A small file with which a process marks something as in use; one process at a time holds it. The
/// lock ends with the process, however that ends. A file that was not removed shows that its
/// process had no time to.
///
/// Folder and file must belong to this user and must not be links; otherwise taking the lock fails.
/// Both are made accessible to this user only. On a file system without locks, every process gets
/// the file.
class LockFile {
 public:
  enum class Missing { make, leave };

  /// An empty handle when another process holds it, or when it is missing and is to be left so.
  static Result<LockFile> take(const std::string& folder, const std::string& name,
                               Missing missing = Missing::make);

  /// Empty.
  LockFile() = default;

  explicit operator bool() const { return static_cast<bool>(file_); }
  [[nodiscard]] const std::string& folder() const { return folderPath_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  /// False on a file system without locks.
  [[nodiscard]] bool isExclusive() const { return isExclusive_; }
  /// When the file was last written, which the lock's previous owner did at its start.
  [[nodiscard]] Date lastWritten() const;
  /// At most 4 KB; empty when it cannot be read.
  [[nodiscard]] std::string content() const;
  /// Replaces the content. A failure (a full disk) leaves part of it, and the lock is kept.
  void write(const std::string& content);
  /// Removes the file, and its folder if that is then empty, and releases the lock.
  void remove();

 private:
  FileDescriptor folder_;
  FileDescriptor file_;
  std::string folderPath_;
  std::string name_;
  bool isExclusive_ = false;
};

}  // namespace foundation
