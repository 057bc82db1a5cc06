// Linked files, and what LLVM's reader says about them.
#include <regex>

#include "macho/MachOCommands.h"
#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

/// All matches of the expression's first group.
std::vector<std::string> matchesIn(const std::string& text, const std::string& expression) {
  const std::regex pattern(expression);
  std::vector<std::string> found;
  for (std::sregex_iterator i(text.begin(), text.end(), pattern), end; i != end; ++i) {
    found.push_back((*i)[1]);
  }
  return found;
}

TEST(OracleTest, AgreesWithOtool) {
  struct Row {
    const char* architecture;
    const char* platform;
    const char* minimumOS;
    /// As a version-min command states it; later ones are not read.
    const char* version;
  };
  for (const auto& [architecture, platform, minimumOS, version] :
       {Row{"arm64", "ios", "9.0", "9.0.0"}, Row{"armv7", "ios", "8.1", "8.1.0"},
        Row{"arm64", "ios", "14.0", "0.0.0"}, Row{"x86_64", "ios-simulator", "9.3", "9.3.0"},
        Row{"arm64_32", "watchos", "6.0", "0.0.0"}}) {
    SCOPED_TRACE(architecture);
    const TemporaryFolder folder;
    const fs::path path = folder / "code";
    linkImage(path, {.architecture = architecture,
                     .platform = platform,
                     .minimumOS = minimumOS,
                     .dylibs = {"/usr/lib/libSystem.B.dylib", "@rpath/A B.framework/A"}});
    const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
    ASSERT_EQ(binary->slices().size(), 1U);
    const QVTMachOSlice& slice = *binary->slices()[0];
    EXPECT_EQ(slice.architectureName(), architecture);
    const auto minimum = slice.minimumOSVersion();
    EXPECT_EQ(macho::QVTMachOFormatVersion(&minimum), version);
    const auto sdk = slice.linkedSDKVersion();
    EXPECT_EQ(macho::QVTMachOFormatVersion(&sdk), *version == '0' ? "0.0.0" : "12.1.0");

    const std::string commands = outputOf({llvmTool("llvm-otool"), "-l", path.string()});
    std::string uuid = matchesIn(commands, "uuid ([-0-9A-F]+)").at(0);
    std::erase(uuid, '-');
    EXPECT_EQ(slice.uuid(), foundation::lowercased(uuid));
    EXPECT_EQ(slice.linkedDylibs(),
              matchesIn(commands, "cmd LC_LOAD_DYLIB\\s+cmdsize \\d+\\s+name (.+) \\(offset"));
  }
}

}  // namespace
