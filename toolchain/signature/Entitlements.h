#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "toolchain/common/Messages.h"
#include "toolchain/signature/Blobs.h"

/// Entitlements in both forms that a signature carries: property-list text and DER.
namespace toolchain {

struct Entitlements {
  /// The text as given, or made from the dictionary when that was given in binary form.
  std::string xml;
  foundation::Dictionary dictionary;
};

/// Fails for anything but a property list with a dictionary, for XML that other readers may read
/// differently, and for a real, date or data value anywhere (the message names its key).
Result<Entitlements> parseEntitlements(Bytes file);
/// Fails for the same values.
Result<Entitlements> makeEntitlements(foundation::Dictionary dictionary);

/// The whole slot-5 and slot-7 blobs.
std::vector<std::byte> entitlementsBlob(const Entitlements& entitlements);
std::vector<std::byte> entitlementsDERBlob(const Entitlements& entitlements);

/// The DER form without blob header: [APPLICATION 16] { INTEGER 1, [CONTEXT 16] { SEQUENCE { key,
/// value } ... } }, keys ascending by bytes.
std::vector<std::byte> encodeEntitlements(const foundation::Dictionary& dictionary);
/// Accepts the current form only, minimal and definite lengths, bounded nesting.
Result<foundation::Dictionary> decodeEntitlements(Bytes bytes);

/// Executable-segment flags that these entitlements ask for; only a boolean true counts.
std::uint64_t executableSegmentFlags(const foundation::Dictionary& entitlements);

}  // namespace toolchain
