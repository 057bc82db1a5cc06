#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/URL.h"
#include "macho/MachOFile.h"
#include "macho/QVTMachOSlice.h"

/// One executable file: its slices, and the identifier of this very build across all of them. Use
/// it from one thread at a time.
class QVTMachOBinary {
 public:
  using UUIDCallback = std::function<void(const std::optional<std::string>& uuid,
                                          const std::string& architectureName)>;

  /// Empty unless this is a regular file of at least 16 bytes. A file that is not Mach-O opens,
  /// with one slice named "unknown"; a universal file may have no slices at all. Throws
  /// `foundation::Exception` if another program truncates the file meanwhile.
  static std::shared_ptr<QVTMachOBinary> MachOBinaryWithPath(std::string_view path);
  static std::shared_ptr<QVTMachOBinary> initWithURL(const foundation::URL& url);

  QVTMachOBinary(const QVTMachOBinary&) = delete;
  QVTMachOBinary& operator=(const QVTMachOBinary&) = delete;
  ~QVTMachOBinary();

  [[nodiscard]] const foundation::URL& URL() const { return url_; }
  [[nodiscard]] std::string path() const { return url_.path(); }
  /// In file order. If the slices overlap so much that together they have far more load commands
  /// than fit the file, the later ones have nothing but their names.
  [[nodiscard]] const std::vector<std::shared_ptr<QVTMachOSlice>>& slices() const {
    return slices_;
  }

  /// 40 lower-case hexadecimal digits: the SHA-1 of all UUIDs in the order of the architectures'
  /// names, computed once. Throws `foundation::Exception` naming the slice if one has no UUID.
  [[nodiscard]] const std::string& instanceIdentifier() const;

  /// Once per slice, in file order.
  void enumerateUUIDs(const UUIDCallback& callback) const;
  /// The first slice with exactly this name, or empty.
  [[nodiscard]] std::shared_ptr<QVTMachOSlice> sliceForArchitecture(std::string_view name) const;

  /// `macho::QVTHashNSString`.
  static std::string hashNSString(std::string_view text);

 private:
  explicit QVTMachOBinary(const foundation::URL& url) : url_(url) {}
  void readSlices();

  foundation::URL url_;
  macho::QVTMachOFile file_;
  std::vector<std::shared_ptr<QVTMachOSlice>> slices_;
  mutable std::optional<std::string> instanceIdentifier_;
};
