#include "foundation/process/ProcessInfo.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <unistd.h>

#include "foundation/base/Assertion.h"
#include "foundation/base/Bytes.h"
#include "foundation/base/Handle.h"
#include "foundation/base/Text.h"
#include "foundation/host/Host.h"

extern char** environ;

namespace foundation::ProcessInfo {

Environment environment() {
  Environment result;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view variable(*entry);
    const auto separator = variable.find('=');
    if (separator == variable.npos || separator == 0) continue;
    result.emplace(variable.substr(0, separator), variable.substr(separator + 1));
  }
  return result;
}

std::optional<std::string> environmentValue(const std::string& name) {
  const char* const value = std::getenv(name.c_str());
  if (!value) return std::nullopt;
  return std::string(value);
}

std::optional<std::string> nonEmptyEnvironmentValue(const std::string& name) {
  auto value = environmentValue(name);
  return value && !value->empty() ? value : std::nullopt;
}

std::string globallyUniqueString() {
  static std::atomic<std::uint64_t> counter{0};
  char suffix[48];
  std::snprintf(suffix, sizeof suffix, "-%ld-%016llX", static_cast<long>(::getpid()),
                static_cast<unsigned long long>(counter.fetch_add(1)));
  return newUUIDString() + suffix;
}

std::string newUUIDString() {
  unsigned char bytes[16] = {};
  const int status = ::getentropy(bytes, sizeof bytes);
  assertThat(status == 0, "status == 0", {__func__, "ProcessInfo.cpp", __LINE__});
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // version 4: random
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);  // variant of RFC 4122
  return uuidString(bytes);
}

std::string executablePath() { return host::executablePath(); }

std::string uuidString(const unsigned char (&bytes)[16]) {
  std::string text = uppercaseHex(std::as_bytes(std::span(bytes)));
  for (const std::size_t dash : {8U, 13U, 18U, 23U}) text.insert(dash, 1, '-');
  return text;
}

}  // namespace foundation::ProcessInfo

namespace foundation {

/// PR_SET_DUMPABLE would hide the environment as well, where children look for HOME.
void keepSecretsInMemory() {
  // Linux ignores a limit of 0 when it pipes dumps to a program. A limit of 1 stops those too, and
  // no dump fits into a file of that size.
  const rlimit smallest = {.rlim_cur = 1, .rlim_max = 1};
  const rlimit none = {.rlim_cur = 0, .rlim_max = 0};
  if (::setrlimit(RLIMIT_CORE, &smallest) != 0) ::setrlimit(RLIMIT_CORE, &none);
  ::unsetenv("SSLKEYLOGFILE");
}

void openMissingStandardDescriptors() {
  // open() returns the lowest free descriptor, so the gaps fill in order.
  for (FileDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC)); null && null.get() <= 2;
       null.reset(::open("/dev/null", O_RDWR | O_CLOEXEC))) {
    ::fcntl(null.release(), F_SETFD, 0);
  }
}

}  // namespace foundation
