// The stand-in release service as a program: prints its address, then each request in readable
// form, until it is ended. Its exit status is 0 when every request was correct.

#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/StandInService.h"

namespace {

constexpr int kUsageStatus = 64;

struct CommandLine {
  test::StandInServiceOptions options;
  std::optional<std::string> saveFolder;
  bool understood = true;
};

bool isPort(std::string_view text, int& port) {
  const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), port);
  constexpr int kHighest = 65535;
  return failed == std::errc() && end == text.data() + text.size() && port >= 0 && port <= kHighest;
}

CommandLine parse(const std::vector<std::string_view>& arguments) {
  CommandLine line;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    const bool hasValue = i + 1 < arguments.size();
    const std::string value(hasValue ? arguments[i + 1] : "");
    if (hasValue && arguments[i] == "--port") {
      line.understood = line.understood && isPort(value, line.options.port);
    } else if (hasValue && arguments[i] == "--key") {
      line.options.apiKey = value;
    } else if (hasValue && arguments[i] == "--secret") {
      line.options.buildSecret = value;
    } else if (hasValue && arguments[i] == "--save") {
      line.saveFolder = value;
    } else {
      line.understood = false;
    }
  }
  return line;
}

/// Indents every line.
std::string indented(const std::string& text) {
  std::string out = "    ";
  for (const char c : text) {
    out += c;
    if (c == '\n') out += "    ";
  }
  out.erase(out.find_last_not_of(" \n") + 1);
  return out + "\n";
}

/// The header with credentials shortened.
std::string shown(const std::string& name, const std::string& value) {
  constexpr std::size_t kShown = 4;
  const bool secret = name.starts_with("X-QUORVANTILE") && value.size() > kShown;
  return name + ": " + (secret ? value.substr(0, kShown) + "…" : value) + "\n";
}

void print(const test::ReceivedRequest& request, const std::vector<std::string>& complaints) {
  std::string text = request.method + " " + request.target + "\n";
  for (const auto& [name, value] : request.headerLines) text += shown(name, value);
  if (!request.body().empty()) {
    try {
      text += "\n" + test::describe(test::parseForm(request.body()));
    } catch (const std::exception& exception) {
      text += std::string(exception.what()) + "\n";
    }
  }
  for (const auto& complaint : complaints) text += "REFUSED: " + complaint + "\n";
  if (complaints.empty()) text += "ACCEPTED\n";
  std::cout << indented(text) << "\n" << std::flush;
}

/// Saves the file of an upload under its own name.
void save(const std::string& folder, const test::ReceivedRequest& request) {
  if (test::callOf(request) != test::ServiceCall::upload) return;
  const test::FormPart file = test::parseForm(request.body()).back();
  std::ofstream(std::filesystem::path(folder) /
                    std::filesystem::path(file.fileName.value_or("upload")).filename(),
                std::ios::binary)
      << file.value;
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line = parse({argv + 1, argv + argc});
  if (!line.understood) {
    std::cerr << "usage: stand-in-service [--port N] [--key API_KEY] [--secret BUILD_SECRET]"
                 " [--save FOLDER]\n";
    return kUsageStatus;
  }
  // Blocked before the server's threads start, so that these signals only end the wait.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  line.options.observer = [folder = line.saveFolder](const test::ReceivedRequest& request,
                                                     const std::vector<std::string>& complaints) {
    print(request, complaints);
    if (folder && complaints.empty()) save(*folder, request);
  };
  const test::StandInService service(std::move(line.options));
  std::cout << "listening on " << service.url() << "\n\n" << std::flush;
  int signal = 0;
  sigwait(&ends, &signal);
  return service.complaints().empty() ? 0 : 1;
}
