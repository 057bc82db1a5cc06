#pragma once

#include <string>
#include <vector>

class QVTWebResponse;

/// The service's message, on one line: the message or list of errors of a JSON document, the title
/// of a web page, or the first line of text; then "(Retry-After: …)" if the response has that
/// header. UTF-8, control characters escaped, truncated after about 400 bytes, any of `secrets`
/// replaced by "…". Empty when there is no message.
std::string serviceMessage(const QVTWebResponse& response, const std::vector<std::string>& secrets);
