#include "tests/Sendoff/ToolRun.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/base/Handle.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/OtherProcess.h"

namespace test {

namespace fs = std::filesystem;

const std::string kTool = SENDOFF_TOOL;
const fs::path kSigningTools = fs::path(kTool).parent_path().parent_path() / "libexec/sendoff";
const std::string kKey = "0123456789abcdefABCDEF0123456789abcdef01";
const std::string kSecret = "5ec3e7";

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> textsOf(const std::map<std::string, std::string>& environment) {
  std::vector<std::string> texts;
  for (const auto& [name, value] : environment) texts.push_back(name + "=" + value);
  return texts;
}

int openFor(const fs::path& path) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

/// Waits for the child's end; false when the limit comes first.
bool waitForEnd(pid_t child, std::chrono::milliseconds limit) {
  const foundation::FileDescriptor end(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  pollfd wait{.fd = end.get(), .events = POLLIN, .revents = 0};
  int ready = 0;
  do {
    ready = ::poll(&wait, 1, static_cast<int>(limit.count()));
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

RunResult endOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  RunResult result;
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

}  // namespace

RunningProgram::RunningProgram(const RunOptions& options) : limit_(options.limit) {
  std::vector<std::string> arguments = options.command;
  std::vector<std::string> variables = textsOf(options.environment);
  const std::vector<char*> argv = pointersTo(arguments);
  const std::vector<char*> envp = pointersTo(variables);
  const foundation::FileDescriptor output(openFor(streams_ / "output"));
  const foundation::FileDescriptor errors(openFor(streams_ / "errors"));

  process_ = ::fork();
  if (process_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (process_ > 0) return;
  ::setsid();
  ::dup2(::open("/dev/null", O_RDONLY), 0);
  ::dup2(output.get(), 1);
  ::dup2(errors.get(), 2);
  // Tests that run in the background have been started with some of them ignored.
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
  if (options.prepare) options.prepare();
  ::execve(argv[0], argv.data(), envp.data());
  ::_exit(127);
}

RunningProgram::~RunningProgram() {
  if (hasEnded_) return;
  ::kill(-process_, SIGKILL);
  endOf(process_);
}

RunResult RunningProgram::wait() {
  const bool ended = waitForEnd(process_, limit_);
  if (!ended) ::kill(-process_, SIGKILL);
  RunResult result = endOf(process_);
  hasEnded_ = true;
  result.output = output();
  result.errors = contentsOf(streams_ / "errors");
  if (!ended) throw std::runtime_error("no end within the limit; so far: " + result.output);
  return result;
}

fs::path signedApp(const fs::path& app) {
  const TemporaryFolder folder;
  const auto signing =
      runCommand({kSigningTools / "codesign", "--sign", signingFamily().leaf.sha1(), "--force",
                  "--keychain", writeKeychain(folder / "identity.pem"), app});
  if (signing.status != 0) throw std::runtime_error("cannot sign " + app.string());
  return app;
}

RunResult runProgram(const RunOptions& options) { return RunningProgram(options).wait(); }

void becomeUnprivileged() {
  if (::geteuid() != 0) return;
  if (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivilegedUser) != 0 ||
      ::setuid(kUnprivilegedUser) != 0) {
    ::_exit(126);
  }
}

std::vector<std::string> RunResult::messages() const {
  static const std::regex kStamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} sendoff Quorvantile: )");
  std::vector<std::string> messages;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    messages.push_back(std::regex_replace(line, kStamp, ""));
  }
  return messages;
}

Workplace::Workplace() {
  for (const auto& folder : {files(), home() / "Library/Keychains", temporary()}) {
    fs::create_directories(folder);
  }
  writeKeychain(home() / "Library/Keychains/identity.pem");
  const char* const path = std::getenv("PATH");
  environment_ = {
      {"HOME", home()}, {"TMPDIR", temporary()}, {"PATH", path ? path : "/usr/bin:/bin"}};
  if (const char* const sanitizer = std::getenv("TSAN_OPTIONS")) {
    environment_["TSAN_OPTIONS"] = sanitizer;
  }
}

std::vector<std::string> Workplace::leftovers() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(temporary())) {
    names.push_back(entry.path().lexically_relative(temporary()));
  }
  std::ranges::sort(names);
  return names;
}

RunOptions Workplace::options(const std::vector<std::string>& arguments) const {
  RunOptions options{.command = {kTool, kKey, kSecret}, .environment = environment_};
  options.command.insert(options.command.end(), arguments.begin(), arguments.end());
  return options;
}

RunResult Workplace::run(const std::vector<std::string>& arguments,
                         const std::function<void()>& prepare) const {
  RunOptions started = options(arguments);
  started.prepare = prepare;
  return runProgram(started);
}

RunResult Workplace::runBare(const std::vector<std::string>& arguments,
                             const std::function<void()>& prepare) const {
  RunOptions options{.command = {kTool}, .environment = environment_, .prepare = prepare};
  options.command.insert(options.command.end(), arguments.begin(), arguments.end());
  return runProgram(options);
}

}  // namespace test
