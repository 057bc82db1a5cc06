// Responses of the service.
#include "foundation/format/JSON.h"

#include "foundation/base/Format.h"
#include "fuzz/FuzzTarget.h"

void fuzz::readInput(foundation::Bytes input) {
  const auto value = foundation::JSON::decode(input);
  if (!value) return;
  fuzz::ignore(foundation::format("%@", *value));
  const std::string written = foundation::JSON::encode(*value);
  fuzz::require(foundation::JSON::decode(foundation::bytesOf(written)).ok());
}
