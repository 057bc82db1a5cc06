#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace test {

/// Small shell scripts named `xcrun`, `codesign` and `codesign_allocate` in a folder of their own,
/// put at the front of PATH for the scope of the object.
///
/// `xcrun --find NAME` prints the path beside itself. `codesign` records how it was called and does
/// as it was told: a run with `--sign` and one with `-vv` succeed without touching the app; one
/// with `--display` writes the entitlements and resource rules given here to the paths that the
/// command line names. It needs no variable of its environment.
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

  /// The calls so far; empty when there was none.
  [[nodiscard]] std::vector<Call> calls() const;

  /// The run of this kind ends with `status`; it does its work all the same.
  void setStatus(Run run, int status) const;
  void setOutput(Run run, std::string_view standardOutput, std::string_view standardError) const;
  /// The entitlements that an export leaves. Default: an application identifier, a team, and
  /// "beta-reports-active" true.
  void setEntitlements(std::string_view text) const;
  /// The export leaves no file at the one or the other path.
  void leaveOutEntitlements() const;
  void leaveOutResourceRules() const;
  /// `xcrun --find NAME` prints nothing and fails from now on.
  void forgetTool(std::string_view name) const;

 private:
  TemporaryFolder folder_;
  ScopedEnvironment path_;
};

}  // namespace test
