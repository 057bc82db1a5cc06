// Argument strings, and option values among the arguments.
#include "QVTSharedUtils/QVTTask.h"
#include "foundation/base/Error.h"
#include "fuzz/FuzzTarget.h"

void fuzz::readInput(foundation::Bytes input) {
  const auto parts = QVTTask::parsedArgumentsFromString(foundation::textOf(input));
  if (!parts) return;
  std::size_t length = 0;
  for (const std::string& part : *parts) length += part.size();
  fuzz::require(length <= input.size());
  const foundation::Array provided(parts->begin(), parts->end());
  for (const bool allowsTrailing : {false, true}) {
    try {
      QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
          provided, {"-F", "-I", "--sign"}, allowsTrailing);
    } catch (const foundation::Exception&) {
      // An empty element after an option.
    }
  }
}
