#include "inspect/Commands.h"

namespace inspect {

const std::vector<Command>& allCommands() {
  static const std::vector<Command> commands = {
      {"macho",
       "FILE",
       "architectures, UUIDs, versions and dylibs of a Mach-O file",
       "Versions come from the version-min commands only, dylibs from the plain load commands "
       "only,\n"
       "as the release service sees them.\n",
       {1, 1, {{"-v"}}},
       reportMachO},
      {"app",
       "PATH [--keychain P]",
       "an .app, .ipa or .xcarchive: identity, executable, profile",
       "",
       {1, 1, {{"--keychain", true}, {"-v"}}},
       reportApp},
      {"profile",
       "FILE [--keychain P] | --installed",
       "a provisioning profile and its certificates",
       "Without -v the text counts devices and certificates instead of naming them; --json holds "
       "all.\n",
       {0, 1, {{"--keychain", true}, {"--installed"}, {"-v"}}},
       reportProfile},
      {"dsym",
       "PATH [--match BINARY]",
       "a symbol bundle's identity and UUIDs",
       "--match says for each slice of BINARY whether its symbols are here; status 1 when any is "
       "not.\n",
       {1, 1, {{"--match", true}}},
       reportDSYM},
      {"project",
       "PATH [--env K=V ...]",
       "an Xcode project's groups, targets and build phases",
       "Absolute paths are found step by step through the source trees, under the environment "
       "given\n"
       "with --env (SOURCE_ROOT, BUILT_PRODUCTS_DIR, SDKROOT, DEVELOPER_DIR). A path below a "
       "group\n"
       "that is not directly in the main group has no absolute path (null).\n",
       {1, 1, {{"--env", true}}},
       reportProject},
      {"archives",
       "[--latest BUNDLE_ID] [--watch]",
       "Xcode's archives, newest first",
       "--watch prints a line for every change until interrupted.\n",
       {0, 0, {{"--latest", true}, {"--watch"}}},
       reportArchives},
      {"check",
       "PATH [--keychain P] [--dsym DIR]",
       "what would stop this hand-off",
       "Status 0: nothing found; 1: something would fail; 3: warnings only. Nothing is sent.\n",
       {1, 1, {{"--keychain", true}, {"--dsym", true}}},
       reportHandOffCheck},
      {"search-paths",
       "VALUE [--directory D]",
       "the folders in a framework-search-paths setting",
       "",
       {1, 1, {{"--directory", true}}},
       reportSearchPaths},
      {"arguments",
       "STRING [--option O ...] [--glued]",
       "a command line split as the shell would",
       "",
       {1, 1, {{"--option", true}, {"--glued"}}},
       reportArguments},
      {"platform", "NAME", "the names of a platform", "", {1, 1, {}}, reportPlatform},
  };
  return commands;
}

}  // namespace inspect
