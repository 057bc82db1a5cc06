// Responses of the service.
#include "foundation/format/JSON.h"

#include "foundation/base/Format.h"
#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = foundation::JSON::decode(fuzz::bytesOf(data, size));
  if (!value) return 0;
  fuzz::ignore(foundation::format("%@", *value));
  const std::string written = foundation::JSON::encode(*value);
  fuzz::require(foundation::JSON::decode(foundation::bytesOf(written)).ok());
  return 0;
}
