#include "tests/inspect/InspectRun.h"

#include <stdexcept>

#include "foundation/base/Text.h"
#include "foundation/format/JSON.h"

namespace test {

inspect::Outcome inspectRun(const std::vector<std::string>& words) {
  return inspect::runProgram(words, inspect::TextStyle{});
}

foundation::Value inspectDocument(std::vector<std::string> words) {
  words.emplace(words.begin() + 1, "--json");
  const auto outcome = inspectRun(words);
  const auto document = foundation::JSON::decode(foundation::bytesOf(outcome.standardOutput));
  if (!document)
    throw std::runtime_error("no document: " + outcome.standardOutput + outcome.standardError);
  return *document;
}

const foundation::Value& at(const foundation::Value& document, std::string_view path) {
  const foundation::Value* value = &document;
  for (const auto& key : foundation::split(path, '.')) {
    if (const auto* array = value->array()) {
      value = &array->at(std::stoul(key));
    } else {
      value = value->find(key);
    }
    if (!value) throw std::runtime_error("nothing at " + std::string(path));
  }
  return *value;
}

std::string textAt(const foundation::Value& document, std::string_view path) {
  const auto& value = at(document, path);
  return value.string() ? *value.string() : foundation::JSON::encode(foundation::Array{value});
}

}  // namespace test
