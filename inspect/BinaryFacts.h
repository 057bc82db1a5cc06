#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Result.h"
#include "macho/MachOCommands.h"
#include "macho/QVTMachOBinary.h"

namespace inspect {

struct LinkedDylib {
  std::string path;
  /// "plain", "weak", "re-exported", "upward" or "lazy".
  std::string_view kind;
};

/// What a slice's load commands say beyond what the release service is told of it.
struct SliceFacts {
  /// Of the first build-version command, else of the last version-min command; absent without
  /// either, and where it states none.
  std::optional<macho::QVTMachOVersion> minimumOSVersion;
  std::optional<macho::QVTMachOVersion> linkedSDKVersion;
  /// In command order.
  std::vector<LinkedDylib> linkedDylibs;
};

struct Binary {
  /// Never empty.
  std::shared_ptr<QVTMachOBinary> object;
  /// One for each slice of `object`.
  std::vector<SliceFacts> facts;
};

/// Fails when the file cannot be read, and for one in which no slice has a Mach-O header. A
/// `foundation::Exception` when somebody cuts it short while it is read.
foundation::Result<Binary> openBinary(const std::string& path);

}  // namespace inspect
