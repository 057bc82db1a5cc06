#include "tests/support/StandInSigner.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "foundation/base/Text.h"

namespace test {

namespace fs = std::filesystem;

namespace {

// The scripts find their folder through the path they were started with, since `codesign` gets only
// one environment variable.
constexpr std::string_view kXcrun = R"(#!/bin/sh
here=${0%/*}
if [ "$1" = --find ] && [ -x "$here/$2" ] && [ ! -e "$here/forgotten-$2" ]; then
  echo "$here/$2"
  exit 0
fi
echo "xcrun: error: unable to find utility \"$2\"" >&2
exit 72
)";

constexpr std::string_view kCodesign = R"(#!/bin/sh
here=${0%/*}
n=1000
while [ -e "$here/calls/$n" ]; do n=$((n + 1)); done
call=$here/calls/$n
/bin/mkdir -p "$call"
printf '%s\0' "$@" > "$call/arguments"
/bin/cat "/proc/$$/environ" > "$call/environment"

run=verify entitlements= rules= previous=
for argument; do
  case $argument in
    --sign) run=sign ;;
    --display) run=display ;;
  esac
  case $previous in
    --entitlements) entitlements=${argument#:} ;;
    --resource-rules) rules=$argument ;;
  esac
  previous=$argument
done
app=$argument

for name in Info.plist embedded.mobileprovision; do
  [ ! -f "$app/$name" ] || /bin/cp "$app/$name" "$call/$name"
done
if [ $run = sign ] && [ -n "$entitlements" ]; then
  /bin/cp "$entitlements" "$call/entitlements"
fi
if [ $run = display ]; then
  [ ! -e "$here/entitlements" ] || /bin/cp "$here/entitlements" "$entitlements"
  [ ! -e "$here/rules" ] || /bin/cp "$here/rules" "$rules"
fi
[ ! -e "$here/stdout-$run" ] || /bin/cat "$here/stdout-$run"
[ ! -e "$here/stderr-$run" ] || /bin/cat "$here/stderr-$run" >&2
status=0
[ ! -e "$here/status-$run" ] || read -r status < "$here/status-$run"
exit "$status"
)";

constexpr std::string_view kCodesignAllocate = R"(#!/bin/sh
exit 0
)";

constexpr std::string_view kHeader = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)";

constexpr std::string_view kEntitlements = R"(<dict>
	<key>application-identifier</key>
	<string>ABCDE12345.com.example.app</string>
	<key>beta-reports-active</key>
	<true/>
	<key>com.apple.developer.team-identifier</key>
	<string>ABCDE12345</string>
	<key>get-task-allow</key>
	<false/>
</dict>
</plist>
)";

constexpr std::string_view kResourceRules = R"(<dict>
	<key>rules</key>
	<dict>
		<key>.*</key>
		<true/>
	</dict>
</dict>
</plist>
)";

std::string pathWith(const fs::path& folder) {
  const char* before = std::getenv("PATH");
  return folder.string() + ":" + (before ? before : "/usr/bin:/bin");
}

const char* nameOf(StandInSigner::Run run) {
  switch (run) {
    case StandInSigner::Run::display:
      return "display";
    case StandInSigner::Run::sign:
      return "sign";
    case StandInSigner::Run::verify:
      break;
  }
  return "verify";
}

std::string contentsIfAny(const fs::path& path) {
  return fs::exists(path) ? contentsOf(path) : std::string();
}

/// Splits NUL-terminated strings.
std::vector<std::string> endedByNul(const std::string& text) {
  auto pieces = foundation::split(text, '\0');
  pieces.pop_back();
  return pieces;
}

StandInSigner::Call readCall(const fs::path& record) {
  StandInSigner::Call call;
  call.arguments = endedByNul(contentsOf(record / "arguments"));
  for (const auto& variable : endedByNul(contentsOf(record / "environment"))) {
    const auto equals = variable.find('=');
    call.environment[variable.substr(0, equals)] = variable.substr(equals + 1);
  }
  call.entitlements = contentsIfAny(record / "entitlements");
  call.infoPlist = contentsIfAny(record / "Info.plist");
  call.embeddedProfile = contentsIfAny(record / "embedded.mobileprovision");
  return call;
}

}  // namespace

StandInSigner::StandInSigner() : path_("PATH", pathWith(folder_.path()).c_str()) {
  for (const auto& [name, script] : std::map<std::string, std::string_view>{
           {"xcrun", kXcrun}, {"codesign", kCodesign}, {"codesign_allocate", kCodesignAllocate}}) {
    fs::permissions(folder_.write(name, script), fs::perms::owner_all);
  }
  setEntitlements(std::string(kHeader).append(kEntitlements));
  folder_.write("rules", std::string(kHeader).append(kResourceRules));
}

std::vector<StandInSigner::Call> StandInSigner::calls() const {
  std::vector<fs::path> records;
  if (fs::exists(folder_ / "calls")) {
    for (const auto& entry : fs::directory_iterator(folder_ / "calls")) {
      records.push_back(entry.path());
    }
  }
  std::ranges::sort(records);
  std::vector<Call> calls;
  for (const auto& record : records) calls.push_back(readCall(record));
  return calls;
}

void StandInSigner::setStatus(Run run, int status) const {
  folder_.write(std::string("status-") + nameOf(run), std::to_string(status) + "\n");
}

void StandInSigner::setOutput(Run run, std::string_view standardOutput,
                              std::string_view standardError) const {
  folder_.write(std::string("stdout-") + nameOf(run), standardOutput);
  folder_.write(std::string("stderr-") + nameOf(run), standardError);
}

void StandInSigner::setEntitlements(std::string_view text) const {
  folder_.write("entitlements", text);
}

void StandInSigner::leaveOutEntitlements() const { fs::remove(folder_ / "entitlements"); }

void StandInSigner::leaveOutResourceRules() const { fs::remove(folder_ / "rules"); }

void StandInSigner::forgetTool(std::string_view name) const {
  folder_.write("forgotten-" + std::string(name), "");
}

}  // namespace test
