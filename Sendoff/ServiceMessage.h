#pragma once

#include <string>
#include <vector>

class QVTWebResponse;

/// What the service says in an answer, on one line: the message or the list of errors of a JSON
/// document, the title of a web page, else the first line of the text; then "(Retry-After: …)"
/// where there is such a field. UTF-8, without control characters, cut after about 400 bytes; any
/// of `secrets` in it becomes "…". Empty for an answer that says nothing.
std::string serviceWords(const QVTWebResponse& response, const std::vector<std::string>& secrets);
