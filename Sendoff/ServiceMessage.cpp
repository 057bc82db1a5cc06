#include "Sendoff/ServiceMessage.h"

#include <algorithm>
#include <string_view>

#include "QVTWebClient/QVTWebClient.h"
#include "QVTWebClient/QVTWebResponse.h"
#include "foundation/base/Text.h"
#include "foundation/base/Value.h"

namespace {

constexpr std::size_t kMaximumSize = 400;
/// Bytes that are searched for the end of the first line.
constexpr std::size_t kMaximumSearch = std::size_t{16} * 1024;
constexpr std::string_view kEllipsis = "…";

/// Empty for a document of unknown shape.
std::string messageIn(const foundation::Value& value) {
  if (const std::string* const text = value.string()) return *text;
  if (const foundation::Array* const list = value.array()) {
    std::vector<std::string> messages;
    for (const foundation::Value& entry : *list) {
      std::string message = messageIn(entry);
      if (!message.empty()) messages.push_back(std::move(message));
    }
    return foundation::joined(messages, "; ");
  }
  for (const char* const key : {"message", "error", "errors", "detail", "title"}) {
    const foundation::Value* const entry = value.find(key);
    std::string message = entry ? messageIn(*entry) : std::string();
    if (!message.empty()) return message;
  }
  return {};
}

/// The title of a web page, else the text as is.
std::string_view titleOr(std::string_view text) {
  constexpr std::string_view kStart = "<title>";
  const std::string lower = foundation::lowercased(text);
  const std::size_t start = text.starts_with('<') ? lower.find(kStart) : std::string::npos;
  if (start == std::string::npos) return text;
  const std::size_t end = lower.find("</title>", start);
  text = text.substr(0, end).substr(start + kStart.size());
  return foundation::trimmed(text);
}

std::string_view firstLine(std::string_view text) {
  text = foundation::trimmed(text);
  return foundation::trimmed(text.substr(0, text.find_first_of("\r\n")));
}

/// Responses may echo the request.
std::string without(const std::vector<std::string>& secrets, std::string text) {
  for (const std::string& secret : secrets) {
    if (secret.empty()) continue;
    for (auto at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
      text.replace(at, secret.size(), kEllipsis);
    }
  }
  return text;
}

std::string shortened(std::string text) {
  if (text.size() <= kMaximumSize) return text;
  std::size_t end = kMaximumSize;
  while (end > 0 && (text[end] & 0xc0) == 0x80) --end;
  return text.substr(0, end).append(kEllipsis);
}

std::string messageIn(foundation::Bytes body) {
  const auto document = QVTWebClient::decodeJSON(body);
  std::string message(firstLine(document ? messageIn(*document) : std::string()));
  if (!message.empty()) return message;
  const std::string text = foundation::lossyUTF8(body.first(std::min(body.size(), kMaximumSearch)));
  return std::string(firstLine(titleOr(foundation::trimmed(text))));
}

}  // namespace

std::string serviceMessage(const QVTWebResponse& response,
                           const std::vector<std::string>& secrets) {
  const auto shown = [&](std::string text) { return shortened(without(secrets, std::move(text))); };
  std::string message = shown(messageIn(response.responseData()).substr(0, kMaximumSearch));
  if (const auto& headers = response.responseHeaders()) {
    const auto retry = headers->find("Retry-After");
    if (retry != headers->end()) {
      message += (message.empty() ? "(Retry-After: " : " (Retry-After: ") +
                 shown(foundation::lossyUTF8(foundation::bytesOf(retry->second))) + ")";
    }
  }
  return foundation::escapingControlCharacters(message);
}
