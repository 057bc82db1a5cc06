#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/app/Bundle.h"
#include "macho/QVTMachOBinary.h"

/// A debug-symbol bundle and its DWARF file.
class QVTdSYM {
 public:
  /// Empty if the bundle or its "Contents/Resources/DWARF" is missing, or that folder is empty. The
  /// DWARF file is the first entry of the folder in its own, unsorted order; if that cannot be
  /// read, there is no binary. Throws what `QVTMachOBinary` and `Bundle` throw.
  static std::shared_ptr<QVTdSYM> dSYMWithURL(const foundation::URL& url);
  static std::shared_ptr<QVTdSYM> initWithURL(const foundation::URL& url);

  [[nodiscard]] const std::shared_ptr<foundation::Bundle>& bundle() const { return bundle_; }
  /// May be empty.
  [[nodiscard]] const std::shared_ptr<QVTMachOBinary>& binary() const { return binary_; }
  /// The app's own: the prefix that dsymutil adds is removed.
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
