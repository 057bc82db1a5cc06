#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace test {

/// Small shell scripts named `xcrun`, `codesign` and `codesign_allocate` in a new folder, at the
/// front of PATH while the object lives.
///
/// `xcrun --find NAME` prints a path in its own folder. `codesign` records its calls: runs with
/// `--sign` or `-vv` succeed without touching the app; a run with `--display` writes the
/// entitlements and resource rules given here to the paths on its command line. It needs no
/// environment variable.
class StandInSigner {
 public:
  enum class Run { display, sign, verify };

  /// One call of `codesign`, in the order of the calls.
  struct Call {
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
    /// The file after `--entitlements` of a signing run at the time of the call; empty without.
    std::string entitlements;
    /// Info.plist and embedded.mobileprovision of the app (the last argument) at that time.
    std::string infoPlist;
    std::string embeddedProfile;
  };

  StandInSigner();

  [[nodiscard]] std::filesystem::path folder() const { return folder_.path(); }
  [[nodiscard]] std::filesystem::path codesign() const { return folder_ / "codesign"; }
  [[nodiscard]] std::filesystem::path codesignAllocate() const {
    return folder_ / "codesign_allocate";
  }

  /// The calls so far.
  [[nodiscard]] std::vector<Call> calls() const;

  /// Runs of this kind end with `status`, after doing their work.
  void setStatus(Run run, int status) const;
  void setOutput(Run run, std::string_view standardOutput, std::string_view standardError) const;
  /// The entitlements that an export writes. Default: an application identifier, a team, and
  /// "beta-reports-active" true.
  void setEntitlements(std::string_view text) const;
  /// The export omits one of its files.
  void leaveOutEntitlements() const;
  void leaveOutResourceRules() const;
  /// From now on `xcrun --find NAME` prints nothing and fails.
  void forgetTool(std::string_view name) const;

 private:
  TemporaryFolder folder_;
  ScopedEnvironment path_;
};

}  // namespace test
