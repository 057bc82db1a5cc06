#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/app/Bundle.h"
#include "macho/QVTMachOBinary.h"

/// A debug-symbol bundle and the DWARF file in it.
class QVTdSYM {
 public:
  /// Empty when the bundle or its "Contents/Resources/DWARF" is missing, or that folder is empty.
  /// The DWARF file is the folder's first entry in the folder's own, unsorted order; when it is not
  /// readable, the object has no binary. A `foundation::Exception` where `QVTMachOBinary` or
  /// `Bundle` throws one.
  static std::shared_ptr<QVTdSYM> dSYMWithURL(const foundation::URL& url);
  static std::shared_ptr<QVTdSYM> initWithURL(const foundation::URL& url);

  [[nodiscard]] const std::shared_ptr<foundation::Bundle>& bundle() const { return bundle_; }
  /// May be empty.
  [[nodiscard]] const std::shared_ptr<QVTMachOBinary>& binary() const { return binary_; }
  /// Without the prefix that the linker's tool puts before it, which leaves the app's own.
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const;
  // Of the binary; absent without one.
  [[nodiscard]] std::optional<foundation::URL> executableURL() const;
  [[nodiscard]] std::optional<std::string> executablePath() const;
  [[nodiscard]] std::optional<std::string> bundleVersion() const;
  [[nodiscard]] std::optional<std::string> shortBundleVersion() const;

  /// `QVTMachOBinary::enumerateUUIDs`; calls nothing without a binary.
  void enumerateUUIDs(const QVTMachOBinary::UUIDCallback& callback) const;

 private:
  QVTdSYM(std::shared_ptr<foundation::Bundle> bundle, std::shared_ptr<QVTMachOBinary> binary);

  std::shared_ptr<foundation::Bundle> bundle_;
  std::shared_ptr<QVTMachOBinary> binary_;
};
