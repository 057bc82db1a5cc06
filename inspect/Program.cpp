#include "inspect/Program.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>
#include <system_error>

#include <unistd.h>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/base/WriteAll.h"
#include "foundation/crypto/Keychain.h"
#include "foundation/format/JSON.h"
#include "foundation/process/SystemLog.h"
#include "inspect/Commands.h"

namespace inspect {

using foundation::format;
using foundation::writeAll;

namespace {

constexpr std::string_view kProgram = "sendoff-inspect";

std::string usage() {
  std::string text = format("Usage: %@ COMMAND ... [--json]\n\nCommands:\n", kProgram);
  for (const auto& command : allCommands()) {
    text += format("  %@ %@\n      %@\n", command.name, command.synopsis, command.summary);
  }
  return text +
         "\n--json prints one JSON document instead of text; COMMAND --help shows more.\n"
         "Status: 0 done, 1 unreadable input, 2 wrong usage; `check` adds 3 for warnings only.\n";
}

std::string usage(const Command& command) {
  return format("Usage: %@ %@ %@ [--json]\n%@\n%@", kProgram, command.name, command.synopsis,
                command.summary, command.details);
}

std::string complaint(std::string_view where, std::string_view text) {
  return std::string(where) + ": " + foundation::escapingControlCharacters(text) + "\n";
}

Outcome failure(const Command& command, const foundation::Error& error) {
  const std::string where = std::string(kProgram) + " " + std::string(command.name);
  Outcome outcome;
  outcome.standardError = complaint(where, error.localizedDescription());
  outcome.status = 1;
  if (isUsageError(error)) {
    outcome.standardError += "Try: " + where + " --help\n";
    outcome.status = 2;
  }
  return outcome;
}

Outcome runCommand(const Command& command, const std::vector<std::string>& words, TextStyle style) {
  ArgumentRules rules = command.rules;
  rules.options.push_back({"--json"});
  const auto arguments = Arguments::parse(words, rules);
  if (!arguments) return failure(command, arguments.error());
  if (arguments->has("--help")) return {usage(command), "", 0};
  // Log lines accompany a report, but a failure is a single line. A watch has no end at which to
  // show them.
  std::optional<foundation::SystemLogHold> log;
  if (!arguments->has("--watch")) log.emplace();
  const foundation::KeychainSession keychains;
  const auto report = command.run(*arguments);
  if (!report) return failure(command, report.error());
  Outcome outcome;
  outcome.status = report->status;
  if (log) outcome.standardError = log->take();
  if (arguments->has("--json")) {
    outcome.standardOutput = foundation::JSON::encode(report->document, 2) + "\n";
  } else {
    style.detailed = arguments->has("-v");
    TextOutput text(style);
    report->showText(report->document, text);
    outcome.standardOutput = text.text();
  }
  return outcome;
}

}  // namespace

Outcome runProgram(const std::vector<std::string>& words, const TextStyle& style) {
  if (words.empty()) return {"", usage(), 2};
  if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") return {usage(), "", 0};
  const auto& commands = allCommands();
  const auto command = std::ranges::find(commands, words[0], &Command::name);
  if (command == commands.end()) {
    return {"",
            complaint(kProgram, "unknown command " + words[0]) + "Try: sendoff-inspect --help\n",
            2};
  }
  try {
    return runCommand(*command, {words.begin() + 1, words.end()}, style);
  } catch (const std::exception& exception) {
    return failure(*command, inputError(exception.what()));
  }
}

int writeOutcome(const Outcome& outcome) {
  writeAll(STDERR_FILENO, outcome.standardError);
  const int error = writeAll(STDOUT_FILENO, outcome.standardOutput);
  if (error == 0) return outcome.status;
  if (error != EPIPE) {
    const std::string line = "sendoff-inspect: cannot write to standard output: " +
                             std::system_category().message(error) + "\n";
    writeAll(STDERR_FILENO, line);
  }
  return outcome.status == 0 ? 1 : outcome.status;
}

}  // namespace inspect
