// Argument strings, and option values among the arguments.
#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"
#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = QVTTask::parsedArgumentsFromString(fuzz::textOf(data, size));
  if (!parts) return 0;
  std::size_t length = 0;
  for (const std::string& part : *parts) length += part.size();
  fuzz::require(length <= size);
  const foundation::Array provided(parts->begin(), parts->end());
  for (const bool allowsTrailing : {false, true}) {
    try {
      QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
          provided, {"-F", "-I", "--sign"}, allowsTrailing);
    } catch (const foundation::Exception&) {
      // An empty element after an option.
    }
  }
  return 0;
}
