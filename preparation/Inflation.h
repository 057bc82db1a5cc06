#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"

/// How large an unpacked archive may be, in bytes: at most `most`, and above `always` at most
/// `timesArchive` times the archive's own size. Checked against the declared sizes before anything
/// is unpacked, and against the files once `unzip` has ended; while it runs, only the disk limits
/// an archive that declares less than it holds.
struct InflationLimits {
  std::uint64_t most = std::uint64_t{20} << 30;
  std::uint64_t always = std::uint64_t{1} << 30;
  std::uint64_t timesArchive = 200;
};

struct InflationOptions {
  /// The caller's own folder to unpack below, ending in "/". Absent: the temporary directory, after
  /// waiting until no other process claims the archive's folder there (see TemporaryItems.h).
  std::optional<std::string> parent = std::nullopt;
  InflationLimits limits = {};
};

/// An archive that has been unpacked.
struct Inflation {
  /// Ends in "/".
  std::string folder;
  /// Names ending in ".app" in the folder's "Payload" that came with this archive, in the file
  /// system's order.
  std::vector<std::string> apps;
  /// Those that did not: they were there before, or the archive does not name them.
  std::vector<std::string> otherApps;
};

/// Unpacks the archive with `unzip` into a folder of the same name without the extension, over
/// whatever is there. Apps in "Payload" that the archive replaces are removed first, so that files
/// of an earlier build do not end up in this one.
///
/// Fails when a link in the folder would be followed, or replaced by anything but a link, when the
/// archive exceeds the limits, and in QVTFileSystemUtilsErrorDomain when `unzip` fails. If the
/// archive's directory cannot be read, the folder may contain no link at all and nothing is removed
/// first.
foundation::Result<Inflation> inflateArchive(const std::string& archive,
                                             const InflationOptions& options = {});
