#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "macho/MachOCommands.h"
#include "macho/MachOSlice.h"

/// What one architecture of an executable tells about itself, read once when the object is made.
/// Immutable.
class QVTMachOSlice {
 public:
  /// Never empty: a slice without a readable header has no values but its name.
  static std::shared_ptr<QVTMachOSlice> initWithSlice(const macho::QVTMachOSlice* slice);
  /// The same, looking at no more than `commandsLeft` load commands and keeping no more than
  /// `textLeft` bytes of library paths; both are lessened by what was used. For files whose slices
  /// overlap to make readers repeat themselves.
  static std::shared_ptr<QVTMachOSlice> initWithSlice(const macho::QVTMachOSlice* slice,
                                                      std::uint64_t& commandsLeft,
                                                      std::uint64_t& textLeft);
  /// The running program's own.
  static std::shared_ptr<QVTMachOSlice> runningSlice();

  /// 32 lower-case hexadecimal digits, of the last UUID command.
  [[nodiscard]] const std::optional<std::string>& uuid() const { return uuidString_; }
  [[nodiscard]] std::string architectureName() const;
  /// Paths of the plainly loaded libraries in command order, not of weak, re-exported, lazy or
  /// upward ones; what is no UTF-8 in them shows as U+FFFD, and one that does not end inside the
  /// file is left out.
  [[nodiscard]] const std::vector<std::string>& linkedDylibs() const { return linkedDylibs_; }
  /// Of the last version-min command; 0.0.0 without one, also when the slice states its platform by
  /// a build-version command.
  [[nodiscard]] macho::QVTMachOVersion minimumOSVersion() const { return minimumOSVersion_; }
  [[nodiscard]] macho::QVTMachOVersion linkedSDKVersion() const { return linkedSDKVersion_; }

 private:
  explicit QVTMachOSlice(const macho::QVTMachOSlice& slice) : slice_(slice) {}
  void readCommand(std::uint32_t cmd, const void* command, std::uint64_t& textLeft);
  void addDylib(const void* command, std::uint64_t& textLeft);

  macho::QVTMachOSlice slice_;
  std::optional<std::string> uuidString_;
  std::vector<std::string> linkedDylibs_;
  macho::QVTMachOVersion minimumOSVersion_;
  macho::QVTMachOVersion linkedSDKVersion_;
};
