#pragma once

#include <string>

#include "foundation/base/Handle.h"
#include "foundation/base/Result.h"
#include "foundation/base/Value.h"

namespace foundation {

/// A small file by which one process at a time says that it uses something. The lock goes with the
/// process, however that ends; the file stays, unless it is removed, and then tells of a process
/// that had no time to.
///
/// The folder must be this user's own and no link, and so must the file; others are an error. Both
/// are made for this user alone. Where the file system knows no locks, everybody has the file.
class LockFile {
 public:
  enum class Missing { make, leave };

  /// An empty handle when another process has it, or when there is none and none is to be made.
  static Result<LockFile> take(const std::string& folder, const std::string& name,
                               Missing missing = Missing::make);

  /// Empty.
  LockFile() = default;

  explicit operator bool() const { return static_cast<bool>(file_); }
  [[nodiscard]] const std::string& folder() const { return folderPath_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  /// False where the file system knows no locks.
  [[nodiscard]] bool isExclusive() const { return isExclusive_; }
  /// When the file was last written; the lock's last owner did that, at its start.
  [[nodiscard]] Date lastWritten() const;
  /// At most 4 KB; empty when it cannot be read.
  [[nodiscard]] std::string content() const;
  /// Replaces the content. A failure (a full disk) leaves less of it, and the lock as it is.
  void write(const std::string& content);
  /// Removes the file, and its folder when that is empty then, and gives up the lock.
  void remove();

 private:
  FileDescriptor folder_;
  FileDescriptor file_;
  std::string folderPath_;
  std::string name_;
  bool isExclusive_ = false;
};

}  // namespace foundation
