#pragma once

#include "foundation/base/Value.h"
#include "inspect/BinaryFacts.h"
#include "inspect/TextOutput.h"

namespace inspect {

/// `slices` in file order (architectureName, uuid, minimumOSVersion, linkedSDKVersion,
/// linkedDylibs, each with path and kind) and `instanceIdentifier`, null where a slice has no UUID.
foundation::Value describeBinary(const Binary& binary);

/// A table of the slices; their dylibs too when `withDylibs`.
struct BinaryTextOptions {
  bool withDylibs = false;
};
void showBinary(const foundation::Value& document, const BinaryTextOptions& options,
                TextOutput& text);

}  // namespace inspect
