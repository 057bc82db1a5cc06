#include "tests/Sendoff/HangingTools.h"

#include <cstdlib>
#include <fstream>
#include <thread>

#include "tests/Sendoff/ToolRun.h"

namespace test {

namespace fs = std::filesystem;

namespace {

// Finds its folder by the path it was started with, since some tools get no environment.
constexpr std::string_view kWrapper = R"(#!/bin/sh
here=${0%/*}
read -r n < "$here/calls"
n=$((n + 1))
echo "$n" > "$here/calls"
"$here/real/${0##*/}" "$@"
status=$?
read -r hanging < "$here/hang-in-call"
if [ "$n" = "$hanging" ]; then
  [ ! -e "$here/stubborn" ] || trap '' TERM
  /bin/sleep 600 &
  echo "$$ $!" > "$here/hanging.new"
  /bin/mv "$here/hanging.new" "$here/hanging"
  wait
fi
exit "$status"
)";

constexpr std::string_view kXcrun = R"(#!/bin/sh
here=${0%/*}
echo "${here%/*}/$2"
)";

std::string forwarderTo(const fs::path& tool) {
  return "#!/bin/sh\nexec " + tool.string() + " \"$@\"\n";
}

/// A process that has ended counts, even where nobody has taken its status yet.
bool isGone(pid_t process) {
  std::ifstream record("/proc/" + std::to_string(process) + "/stat");
  std::string number, name, state;
  return !(record >> number >> name >> state) || state == "Z";
}

}  // namespace

HangingTools::HangingTools(const fs::path& home) {
  const auto writeTool = [this](const fs::path& name, std::string_view script) {
    fs::permissions(folder_.write(name, script), fs::perms::owner_all);
  };
  for (const char* const name : {"unzip", "zip", "xcrun", "codesign"}) writeTool(name, kWrapper);
  writeTool("real/unzip", forwarderTo("/usr/bin/unzip"));
  writeTool("real/zip", forwarderTo("/usr/bin/zip"));
  writeTool("real/xcrun", kXcrun);
  writeTool("real/codesign", "#!/bin/sh\nHOME=" + home.string() + " exec " +
                                 (kSigningTools / "codesign").string() + " \"$@\"\n");
  hangInCall(0);
}

std::string HangingTools::path() const {
  const char* const before = std::getenv("PATH");
  return folder_.path().string() + ":" + (before ? before : "/usr/bin:/bin");
}

void HangingTools::hangInCall(int call, Manner manner) const {
  folder_.write("calls", "0\n");
  folder_.write("hang-in-call", std::to_string(call) + "\n");
  fs::remove(folder_ / "hanging");
  fs::remove(folder_ / "stubborn");
  if (manner == Manner::stubborn) folder_.write("stubborn", "");
}

bool HangingTools::waitUntilHanging() const {
  return eventually([this] { return fs::exists(folder_ / "hanging"); });
}

bool HangingTools::areGone() const {
  std::ifstream record(folder_ / "hanging");
  pid_t tool = 0;
  pid_t itsChild = 0;
  record >> tool >> itsChild;
  return record && eventually([&] { return isGone(tool) && isGone(itsChild); });
}

bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

bool catches(pid_t process, int signal) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("SigCgt:\t")) continue;
    return (std::stoull(line.substr(8), nullptr, 16) >> (signal - 1) & 1) != 0;
  }
  return false;
}

}  // namespace test
