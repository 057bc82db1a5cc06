#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/StandInService.h"

namespace test {

enum class Route { ipa, archive };

/// A call of the tool that is to fail.
struct Fault {
  Route route = Route::ipa;
  /// As the shim names them; a chain of callers, or a number when `isNumbered`.
  std::string kind;
  std::string which;
  bool isNumbered = false;
  /// Of what fails on a full disk: the user's quota is used up instead.
  bool isQuota = false;

  [[nodiscard]] std::string text() const;
};

/// What the shim wrote in a run without a fault.
struct Calls {
  /// Each kind and chain of callers once, in the order of the first calls.
  std::vector<Fault> sites;
  std::map<std::string, long> counts;
};

/// A place for whole runs of the tool, signed by the real tools, with a service for each.
class FaultyRun {
 public:
  FaultyRun();

  /// A run without a fault; throws when it does not succeed. To be called before `check`.
  Calls record(Route route);

  /// Runs with this fault. Everything that is wrong with how the run ended, one text each. Sets
  /// `wasMet` when the run came to the call at all.
  std::vector<std::string> check(const Fault& fault, bool& wasMet);

 private:
  struct Outcome {
    RunResult result;
    std::string report;
    std::vector<ServiceCall> calls;
    std::vector<std::string> complaints;
    /// The upload's fields without the time, and of its file the names, sizes and sums inside.
    std::string upload;
  };

  Outcome run(Route route, const std::map<std::string, std::string>& faults);
  std::vector<std::string> problemsOf(const Outcome& outcome, Route route) const;
  std::vector<std::string> wrongLeftovers(const Outcome& outcome) const;
  std::string describeUpload(const StandInService& service) const;
  void clear() const;

  Workplace place_;
  std::filesystem::path ipa_;
  std::filesystem::path products_;
  std::string originals_;
  std::map<Route, std::string> rightUpload_;
};

}  // namespace test
