#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "macho/SliceContents.h"

/// One architecture of an executable, read once when the object is made. Immutable.
class QVTMachOSlice {
 public:
  /// Never empty: a slice without a readable header has no values but its name.
  static std::shared_ptr<QVTMachOSlice> initWithSlice(const macho::QVTMachOSlice* slice);
  /// The same within what is left of a budget for the whole file.
  static std::shared_ptr<QVTMachOSlice> initWithSlice(const macho::QVTMachOSlice* slice,
                                                      macho::ReadingBudget& budget);
  /// The running program's own.
  static std::shared_ptr<QVTMachOSlice> runningSlice();

  /// 32 lower-case hexadecimal digits, of the last UUID command.
  [[nodiscard]] const std::optional<std::string>& uuid() const { return contents_.uuid; }
  [[nodiscard]] std::string architectureName() const;
  /// Paths of the plainly loaded libraries in command order: no weak, re-exported, lazy or upward
  /// ones.
  [[nodiscard]] std::vector<std::string> linkedDylibs() const;
  /// Of the last version-min command; 0.0.0 without one, even if there is a build-version command.
  [[nodiscard]] macho::QVTMachOVersion minimumOSVersion() const;
  [[nodiscard]] macho::QVTMachOVersion linkedSDKVersion() const;
  /// Everything that was read.
  [[nodiscard]] const macho::SliceContents& contents() const { return contents_; }

 private:
  QVTMachOSlice(const macho::QVTMachOSlice& slice, macho::SliceContents contents);

  macho::QVTMachOSlice slice_;
  macho::SliceContents contents_;
};
