#pragma once

#include <string>
#include <vector>

#include "foundation/base/Value.h"
#include "inspect/Program.h"

namespace test {

/// The program's answer to these words, off a terminal.
inspect::Outcome inspectRun(const std::vector<std::string>& words);

/// The document that `--json` prints; an exception with what was printed when there is none.
foundation::Value inspectDocument(std::vector<std::string> words);

/// The value at "a.b.0.c" in a document; an exception when there is none.
const foundation::Value& at(const foundation::Value& document, std::string_view path);
std::string textAt(const foundation::Value& document, std::string_view path);

}  // namespace test
