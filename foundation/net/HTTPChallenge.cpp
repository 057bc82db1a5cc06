#include "foundation/net/private/HTTPChallenge.h"

namespace foundation {

namespace {

std::string methodOf(std::string_view challenge) {
  const std::string scheme = lowercased(challenge.substr(0, challenge.find_first_of(" ,")));
  if (scheme == "basic") return "NSURLAuthenticationMethodHTTPBasic";
  if (scheme == "digest") return "NSURLAuthenticationMethodHTTPDigest";
  return "NSURLAuthenticationMethodDefault";
}

/// The text between the quotation marks at the start of `text`; a backslash escapes the next
/// character.
std::string unquoted(std::string_view text) {
  std::string value;
  for (std::size_t i = 1; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    value += text[i];
  }
  return value;
}

std::string realmOf(std::string_view challenge) {
  constexpr std::string_view kName = "realm=";
  const std::size_t start = lowercased(challenge).find(kName);
  if (start == std::string::npos) return {};
  const std::string_view value = challenge.substr(start + kName.size());
  if (value.starts_with('"')) return unquoted(value);
  return std::string(value.substr(0, value.find_first_of(" ,")));
}

}  // namespace

std::optional<ProtectionSpace> challengeOf(const URL& url, const HTTPResponse& response) {
  const char* const field = response.statusCode == 401   ? "WWW-Authenticate"
                            : response.statusCode == 407 ? "Proxy-Authenticate"
                                                         : nullptr;
  if (!field) return std::nullopt;
  const auto challenge = response.headers.find(field);
  if (challenge == response.headers.end()) return std::nullopt;
  return ProtectionSpace{.host = url.host(),
                         .port = url.port(),
                         .authenticationMethod = methodOf(challenge->second),
                         .realm = realmOf(challenge->second)};
}

ProtectionSpace serverTrustSpace(const URL& url) {
  return {.host = url.host(),
          .port = url.port(),
          .authenticationMethod = "NSURLAuthenticationMethodServerTrust",
          .realm = {},
          .hasServerTrust = true};
}

}  // namespace foundation
