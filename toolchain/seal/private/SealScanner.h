#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "toolchain/seal/ResourceSeal.h"

namespace toolchain {

/// How a seal of the platform's tool and of this library begins, up to its first list.
inline constexpr std::string_view kSealHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n";

/// A seal with its long lists taken out.
struct ScannedSeal {
  /// Absent: not there, or not laid out as the platform's tool does it; then still in `rest`.
  std::optional<SealedItems> files;
  std::optional<SealedItems> files2;
  /// The property list with an empty dictionary for each list that was taken out.
  std::string rest;
};

/// Reads the two lists of a seal in the one layout that the platform's tool and this library write,
/// in one pass and without a tree: they have a few entries for each file of an app. Anything in
/// another layout, and anything malformed, is left to a reader of property lists.
ScannedSeal scanSeal(std::string_view text);

}  // namespace toolchain
