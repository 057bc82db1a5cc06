#pragma once

#include <string_view>
#include <vector>

#include "inspect/Arguments.h"
#include "inspect/Report.h"

namespace inspect {

/// A sub-command. It fails with a usage error or, for unreadable input, any other error.
struct Command {
  std::string_view name;
  /// The arguments, as the usage text shows them.
  std::string_view synopsis;
  std::string_view summary;
  /// More help, in whole lines; may be empty.
  std::string_view details;
  /// Without `--json` and `--help`, which every sub-command accepts.
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
