#include "inspect/Commands.h"

namespace inspect {

const std::vector<Command>& allCommands() {
  static const std::vector<Command> commands = {
      {"macho",
       "FILE [-v]",
       "architectures, UUIDs, versions and dylibs of a Mach-O file",
       "-v lists the dylibs that the text counts, and marks those that are weak, re-exported, "
       "upward\n"
       "or lazy. The release service receives only slices and UUIDs.\n",
       {1, 1, {{"-v"}}},
       reportMachO},
      {"app",
       "PATH [--keychain P] [-v]",
       "an .app, .ipa or .xcarchive: identity, executable, profile",
       "An .ipa is inflated into a temporary folder, which is removed afterwards: paths below it\n"
       "no longer exist. Without -v the text counts dylibs, devices and certificates.\n",
       {1, 1, {{"--keychain", true}, {"-v"}}},
       reportApp},
      {"profile",
       "FILE | --installed [--keychain P] [-v]",
       "a provisioning profile and its certificates",
       "Private keys are looked up in P (a PEM or PKCS #12 file, or a folder), else in\n"
       "~/Library/Keychains. Without -v the text counts devices and certificates; --json lists\n"
       "them all.\n",
       {0, 1, {{"--keychain", true}, {"--installed"}, {"-v"}}},
       reportProfile},
      {"dsym",
       "PATH [--match BINARY]",
       "a symbol bundle's identity and UUIDs",
       "--match shows for each slice of BINARY whether its symbols are here; status 1 if any are\n"
       "missing.\n",
       {1, 1, {{"--match", true}}},
       reportDSYM},
      {"project",
       "PATH [--env K=V ...]",
       "an Xcode project's groups, targets and build phases",
       "Absolute paths are resolved through the source trees, in the environment given with --env\n"
       "(SOURCE_ROOT, BUILT_PRODUCTS_DIR, SDKROOT, DEVELOPER_DIR). A path below a group that is\n"
       "not directly in the main group has no absolute path (null).\n",
       {1, 1, {{"--env", true}}},
       reportProject},
      {"archives",
       "[--latest BUNDLE_ID] [--watch]",
       "Xcode's archives, newest first",
       "--latest: only the newest with this identifier, ignoring case; status 1 if there is none.\n"
       "--watch prints a line for every notification of new archives until interrupted, and waits\n"
       "for the folder if it is missing.\n",
       {0, 0, {{"--latest", true}, {"--watch"}}},
       reportArchives},
      {"check",
       "PATH [--keychain P] [--dsym DIR]",
       "what would stop this hand-off",
       "PATH as for app. One line for each finding, with what to do about it; nothing is sent or\n"
       "changed. Without --keychain the one that CODE_SIGN_KEYCHAIN names is searched, else\n"
       "~/Library/Keychains, as in a hand-off. DIR is a .dSYM bundle or a folder of them.\n"
       "Status 0: nothing found; 1: something would fail; 3: warnings only.\n",
       {1, 1, {{"--keychain", true}, {"--dsym", true}}},
       reportHandOffCheck},
      {"search-paths",
       "VALUE [--directory D]",
       "the folders in a framework-search-paths setting",
       "Relative folders are below D, else below the current folder. Lost quoting is restored by\n"
       "what exists on disk.\n",
       {1, 1, {{"--directory", true}}},
       reportSearchPaths},
      {"arguments",
       "STRING [--option O ...] [--glued]",
       "a command line split like a shell would",
       "With --option the values of those options instead; --glued accepts -Ovalue, too. Write --\n"
       "before a STRING that begins with a dash.\n",
       {1, 1, {{"--option", true}, {"--glued"}}},
       reportArguments},
      {"platform",
       "NAME",
       "the names of a platform",
       "NAME is an SDK name (iphoneos, appletvsimulator) or the service's short name (ios).\n",
       {1, 1, {}},
       reportPlatform},
  };
  return commands;
}

}  // namespace inspect
