#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include <sys/types.h>

#include "tests/support/TemporaryFolder.h"

namespace test {

/// The tools that a run calls (unzip, xcrun, codesign, zip), counted together in the order of their
/// calls. All do their work; one of them then hangs, with a child of its own, until it is ended.
class HangingTools {
 public:
  /// Of a run by .ipa: unzip, xcrun twice, codesign four times, zip.
  static constexpr int kCallsOfARun = 8;
  enum class Manner { polite, stubborn };

  /// `codesign` is the real one and takes its identities from this home folder.
  explicit HangingTools(const std::filesystem::path& home);

  /// What PATH is to be.
  [[nodiscard]] std::string path() const;
  /// From now on calls are counted anew; 0: none hangs.
  void hangInCall(int call, Manner manner = Manner::polite) const;
  [[nodiscard]] bool waitUntilHanging() const;
  /// True once the tool that hung and its child have ended.
  [[nodiscard]] bool areGone() const;

 private:
  TemporaryFolder folder_;
};

/// True once `condition` holds; false when it does not within half a minute.
bool eventually(const std::function<bool()>& condition);

/// True when the process has a handler for the signal.
bool catches(pid_t process, int signal);

}  // namespace test
