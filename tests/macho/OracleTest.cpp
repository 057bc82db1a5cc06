// Real files, and what tools of another make say about them.
#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "foundation/base/Text.h"
#include "macho/MachOSlice.h"
#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

/// All matches of the expression's first group.
std::vector<std::string> matchesIn(const std::string& text, const char* expression) {
  const std::regex pattern(expression);
  std::vector<std::string> found;
  for (std::sregex_iterator i(text.begin(), text.end(), pattern), end; i != end; ++i) {
    found.push_back((*i)[1]);
  }
  return found;
}

/// "9.0" and "9.0.0" as 9.0.0.
std::string fullVersion(std::string text) {
  while (std::count(text.begin(), text.end(), '.') < 2) text += ".0";
  return text;
}

struct RealFile {
  const char* architecture;
  const char* platform;
  const char* minimumOS;
};

class OracleTest : public testing::Test {
 protected:
  fs::path link(const RealFile& file) {
    const fs::path path = folder_ / (std::string(file.architecture) + "-" + file.platform);
    test::linkImage(path, {.architecture = file.architecture,
                           .platform = file.platform,
                           .minimumOS = file.minimumOS,
                           .dylibs = {"/usr/lib/libSystem.B.dylib", "@rpath/A B.framework/A"}});
    return path;
  }

  test::TemporaryFolder folder_;
};

TEST_F(OracleTest, AgreesWithOtoolAboutThinFiles) {
  for (const RealFile& c :
       {RealFile{"arm64", "ios", "9.0"}, RealFile{"armv7", "ios", "8.1"},
        RealFile{"arm64", "ios", "14.0"}, RealFile{"x86_64", "ios-simulator", "9.3"},
        RealFile{"arm64_32", "watchos", "6.0"}}) {
    SCOPED_TRACE(c.architecture);
    const fs::path path = link(c);
    const auto binary = QVTMachOBinary::MachOBinaryWithPath(path.string());
    ASSERT_EQ(binary->slices().size(), 1U);
    const QVTMachOSlice& slice = *binary->slices()[0];
    EXPECT_EQ(slice.architectureName(), c.architecture);

    const std::string commands =
        test::outputOf({test::llvmTool("llvm-otool"), "-l", path.string()});
    std::string uuid = matchesIn(commands, "uuid ([-0-9A-F]+)").at(0);
    std::erase(uuid, '-');
    EXPECT_EQ(slice.uuid(), foundation::lowercased(uuid));
    EXPECT_EQ(slice.linkedDylibs(),
              matchesIn(commands, "cmd LC_LOAD_DYLIB\\s+cmdsize \\d+\\s+name (.+) \\(offset"));
    const auto versions =
        matchesIn(commands, "cmd LC_VERSION_MIN_\\w+\\s+cmdsize \\d+\\s+version (\\S+)");
    const auto minimum = slice.minimumOSVersion();
    EXPECT_EQ(macho::QVTMachOFormatVersion(&minimum),
              versions.empty() ? "0.0.0" : fullVersion(versions[0]));
    const auto sdk = slice.linkedSDKVersion();
    EXPECT_EQ(macho::QVTMachOFormatVersion(&sdk), versions.empty() ? "0.0.0" : "12.1.0");
  }
}

TEST_F(OracleTest, AgreesWithDwarfdumpAboutUniversalFiles) {
  const fs::path app = folder_ / "App";
  test::lipo(app, {link({"armv7", "ios", "8.0"}), link({"x86_64", "ios-simulator", "9.0"}),
                   link({"arm64", "ios", "9.0"})});
  const std::string listing =
      test::outputOf({test::llvmTool("llvm-dwarfdump"), "--uuid", app.string()});
  auto uuids = matchesIn(listing, "UUID: ([-0-9A-F]+) ");
  const auto names = matchesIn(listing, "\\((\\S+)\\)");
  ASSERT_EQ(uuids.size(), 3U);
  std::size_t index = 0;
  QVTMachOBinary::MachOBinaryWithPath(app.string())
      ->enumerateUUIDs([&](const auto& uuid, const auto& name) {
        std::erase(uuids[index], '-');
        EXPECT_EQ(uuid, foundation::lowercased(uuids[index]));
        EXPECT_EQ(name, names[index++]);
      });
  EXPECT_EQ(index, 3U);
}

TEST_F(OracleTest, AgreesWithObjdumpAboutSections) {
  const fs::path path = link({"arm64", "ios", "9.0"});
  const std::string commands = test::outputOf(
      {test::llvmTool("llvm-objdump"), "--macho", "--private-headers", path.string()});
  const std::string section = "sectname __text\\s+segname __TEXT\\s+";
  const auto address = matchesIn(commands, (section + "addr (\\S+)").c_str()).at(0);
  const auto size = matchesIn(commands, (section + "addr \\S+\\s+size (\\S+)").c_str()).at(0);
  macho::QVTMachOFile file;
  ASSERT_TRUE(macho::QVTMachOFileInitWithPath(&file, path.c_str()));
  const auto slice = macho::QVTMachOFileSliceWithArchitectureName(&file, "arm64");
  macho::QVTMachOSection found;
  EXPECT_TRUE(macho::QVTMachOSliceInitSectionByName(&slice, "__TEXT", "__text", &found));
  EXPECT_EQ(found.address, std::stoull(address, nullptr, 16));
  EXPECT_EQ(found.size, std::stoull(size, nullptr, 16));
  macho::QVTMachOFileDestroy(&file);
}

}  // namespace
