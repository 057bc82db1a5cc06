#pragma once

#include <memory>
#include <utility>

#include <unistd.h>

namespace foundation {

template <auto Release>
struct Releaser {
  void operator()(auto* handle) const { Release(handle); }
};

/// Owner of a C resource, the size of a pointer:
/// `using CertificateHandle = Handle<X509, X509_free>;`
template <class T, auto Release>
using Handle = std::unique_ptr<T, Releaser<Release>>;

/// Owner of a file descriptor; -1 is "none". Closing errors are not reported.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~FileDescriptor() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace foundation
