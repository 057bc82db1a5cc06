#pragma once

#include "foundation/Value.h"
#include "inspect/TextOutput.h"

class QVTMachOBinary;

namespace inspect {

/// `slices` in file order (architectureName, uuid, minimumOSVersion, linkedSDKVersion,
/// linkedDylibs) and `instanceIdentifier`, null where a slice has no UUID.
foundation::Value describeBinary(const QVTMachOBinary& binary);

/// A table of the slices; their dylibs too when `withDylibs`.
struct BinaryTextOptions {
  bool withDylibs = false;
};
void showBinary(const foundation::Value& document, const BinaryTextOptions& options,
                TextOutput& text);

}  // namespace inspect
