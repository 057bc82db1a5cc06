#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "macho/MachOCommands.h"
#include "macho/MachOFile.h"

namespace macho {

enum class DylibKind { plain, weak, reexported, upward, lazy };

struct LinkedDylib {
  /// Bytes that are not UTF-8 are replaced by U+FFFD.
  std::string path;
  DylibKind kind = DylibKind::plain;
};

/// 0.0.0 is how linkers write a version that they do not know.
struct TargetVersions {
  QVTMachOVersion minimumOS;
  QVTMachOVersion sdk;
};

/// What the load commands of one slice say.
struct SliceContents {
  /// Whether a whole Mach-O header is there; nothing else is without one.
  bool hasHeader = false;
  /// 32 lower-case hexadecimal digits, of the last UUID command.
  std::optional<std::string> uuid;
  /// In command order. One whose path does not end inside the file is left out.
  std::vector<LinkedDylib> dylibs;
  /// Of the last version-min command.
  std::optional<TargetVersions> versionMin;
  /// Of the first build-version command.
  std::optional<TargetVersions> buildVersion;
};

/// What reading all slices of a file may cost together. Slices of a hostile file overlap, so that
/// the same commands and paths are read over and over.
struct ReadingBudget {
  /// `address`: anywhere in the file.
  explicit ReadingBudget(const void* address);

  std::uint64_t commands;
  std::uint64_t textBytes;
};

/// Subtracts what was read from the budget. Once that is spent, nothing but `hasHeader` is read.
SliceContents readContents(const QVTMachOSlice& slice, ReadingBudget& budget);

}  // namespace macho
