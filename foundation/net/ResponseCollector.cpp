#include "foundation/net/private/ResponseCollector.h"

#include <new>
#include <utility>

namespace foundation {

bool ResponseCollector::addHeaderLine(std::string_view line, long statusCode) {
  if (line.size() > kMaximumHeader - headerSize_) {
    refusal_ = Refusal::headerTooLong;
    return false;
  }
  headerSize_ += line.size();
  if (hasHeader_) return true;  // a trailer
  if (line.starts_with("HTTP/")) {
    response_ = {};
    lastField_.clear();
    return true;
  }
  if (line != "\r\n" && line != "\n") {
    addField(line);
    return true;
  }
  response_.statusCode = statusCode;
  hasHeader_ = statusCode >= 200;
  return true;
}

void ResponseCollector::addField(std::string_view line) {
  if (line.front() == ' ' || line.front() == '\t') {  // continues the previous field
    const auto field = response_.headers.find(lastField_);
    if (field != response_.headers.end()) field->second.append(" ").append(trimmed(line));
    return;
  }
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  lastField_ = trimmed(line.substr(0, colon));
  const std::string_view value = trimmed(line.substr(colon + 1));
  const auto [field, isNew] = response_.headers.try_emplace(lastField_, value);
  if (!isNew) field->second.append(", ").append(value);
}

bool ResponseCollector::addBody(Bytes bytes) {
  if (bytes.size() > kMaximumBody - bodySize_) {
    refusal_ = Refusal::bodyTooLong;
    return false;
  }
  try {
    body_.append(textOf(bytes));
  } catch (const std::bad_alloc&) {
    refusal_ = Refusal::noMemory;
    return false;
  }
  bodySize_ += bytes.size();
  return true;
}

std::string ResponseCollector::takeBody() { return std::exchange(body_, {}); }

}  // namespace foundation
