#pragma once

#include "foundation/base/Result.h"
#include "foundation/base/Value.h"
#include "inspect/TextOutput.h"
#include "macho/QVTMachOBinary.h"

namespace inspect {

/// Never empty. Fails when the file cannot be read or no slice of it has a Mach-O header. Throws
/// what `QVTMachOBinary` throws.
foundation::Result<std::shared_ptr<QVTMachOBinary>> openBinary(const std::string& path);

/// `slices` in file order (architectureName, uuid, minimumOSVersion, linkedSDKVersion, and
/// linkedDylibs with path and kind) and `instanceIdentifier`, null when a slice has no UUID.
foundation::Value describeBinary(const QVTMachOBinary& binary);

/// A table of the slices; detailed, also their dylibs.
void showBinary(const foundation::Value& document, TextOutput& text);

}  // namespace inspect
