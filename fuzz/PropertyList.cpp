// Property lists in their three forms, told apart by content; what can be read can be written.
#include "foundation/format/PropertyList.h"

#include "foundation/base/Format.h"
#include "fuzz/FuzzTarget.h"

namespace PropertyList = foundation::PropertyList;

void fuzz::readInput(foundation::Bytes input) {
  const auto value = PropertyList::parse(input);
  const auto strict = PropertyList::parseUnambiguous(input);
  if (strict) fuzz::require(value.ok());
  if (!value) return;
  fuzz::ignore(foundation::format("%@", *value));
  // Characters that XML cannot hold have no written form.
  const auto written = PropertyList::xml(*value);
  if (written) fuzz::require(PropertyList::parse(foundation::bytesOf(*written)).ok());
}
