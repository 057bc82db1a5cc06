// Property lists in their three forms, told apart by content; what can be read can be written.
#include "foundation/format/PropertyList.h"

#include "foundation/base/Format.h"
#include "fuzz/FuzzTarget.h"

namespace PropertyList = foundation::PropertyList;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = PropertyList::parse(fuzz::bytesOf(data, size));
  const auto strict = PropertyList::parseUnambiguous(fuzz::bytesOf(data, size));
  if (strict) fuzz::require(value.ok());
  if (!value) return 0;
  fuzz::ignore(foundation::format("%@", *value));
  // Characters that XML cannot hold have no written form.
  const auto written = PropertyList::xml(*value);
  if (written) fuzz::require(PropertyList::parse(foundation::bytesOf(*written)).ok());
  return 0;
}
