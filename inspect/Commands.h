#pragma once

#include <string_view>
#include <vector>

#include "inspect/Arguments.h"
#include "inspect/Report.h"

namespace inspect {

/// One sub-command. Its function answers with a report, or fails: a usage error for words that make
/// no sense, any other error for input that cannot be read.
struct Command {
  std::string_view name;
  /// What stands behind the name in the usage text.
  std::string_view synopsis;
  std::string_view summary;
  /// Longer help, whole lines; may be empty.
  std::string_view details;
  /// `--json` and `--help` are known to all and not listed.
  ArgumentRules rules;
  foundation::Result<Report> (*run)(const Arguments& arguments);
};

/// All sub-commands, in the order of the usage text.
const std::vector<Command>& allCommands();

foundation::Result<Report> reportMachO(const Arguments& arguments);
foundation::Result<Report> reportApp(const Arguments& arguments);
foundation::Result<Report> reportProfile(const Arguments& arguments);
foundation::Result<Report> reportDSYM(const Arguments& arguments);
foundation::Result<Report> reportProject(const Arguments& arguments);
foundation::Result<Report> reportArchives(const Arguments& arguments);
foundation::Result<Report> reportHandOffCheck(const Arguments& arguments);
foundation::Result<Report> reportSearchPaths(const Arguments& arguments);
foundation::Result<Report> reportArguments(const Arguments& arguments);
foundation::Result<Report> reportPlatform(const Arguments& arguments);

}  // namespace inspect
