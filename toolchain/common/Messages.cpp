#include "toolchain/common/Messages.h"

#include <array>
#include <charconv>

namespace toolchain {

foundation::Error failure(std::string text) {
  return foundation::makeError("ToolchainErrorDomain", 1, std::move(text));
}

foundation::Error within(std::string_view where, const foundation::Error& error) {
  const std::string prefix = std::string(where) + ": ";
  auto result =
      foundation::makeError(error.domain, error.code, prefix + error.localizedDescription());
  if (const auto detail = foundation::stringAt(error.userInfo, kDetailKey)) {
    result.userInfo.emplace(kDetailKey, detail->empty() ? std::string(where) : prefix + *detail);
  }
  return result;
}

std::string hex(std::uint64_t value) {
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16).ptr;
  return "0x" + std::string(digits.data(), end);
}

}  // namespace toolchain
