#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Result.h"

/// How large an unpacked archive may be, in bytes: at most `most`, and beyond `always` at most
/// `timesArchive` times as large as the archive.
///
/// The sizes that the archive declares are compared with it before anything is unpacked, and what
/// has been written once `unzip` has ended. Until then only the disk bounds an archive that
/// declares less than it holds.
struct InflationLimits {
  std::uint64_t most = std::uint64_t{20} << 30;
  std::uint64_t always = std::uint64_t{1} << 30;
  std::uint64_t timesArchive = 200;
};

struct InflationOptions {
  /// The folder, ending in "/", in which the archive's is made; the caller's own. Absent: the
  /// temporary directory, in which the archive's folder is this process's until its claims are
  /// released (see TemporaryItems.h); while it is another's this waits.
  std::optional<std::string> parent = std::nullopt;
  InflationLimits limits = {};
};

/// An archive that has been unpacked.
struct Inflation {
  /// Ends in "/".
  std::string folder;
  /// Names of the items of the folder's "Payload" that end in ".app", as the file system lists
  /// them. The archive names them all, and not one was there before.
  std::vector<std::string> apps;
  /// Those that were there before, or that the archive does not name.
  std::vector<std::string> otherApps;
};

/// Unpacks the archive with `unzip` into a folder that is named like it, less the extension, over
/// what is there already. Of that only apps in "Payload" are removed before which the archive
/// brings, too: what an earlier archive had in them is not to become a part of this one's.
///
/// Fails when a link in the folder would be followed, or replaced by anything but a link of the
/// archive's, when the archive is larger than the limits, and with an error of
/// QVTFileSystemUtilsErrorDomain when `unzip` fails. An archive whose directory cannot be read is
/// left to `unzip`, but then no link at all may be in the folder, and nothing is removed before.
foundation::Result<Inflation> inflateArchive(const std::string& archive,
                                             const InflationOptions& options = {});
