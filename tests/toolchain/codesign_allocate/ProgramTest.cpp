#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"
#include "toolchain/codesign_allocate/Program.h"

namespace {

/// The exit status and what the program prints, as "STATUS LINE\n...".
std::string runOf(const std::vector<std::string>& arguments) {
  int status = -1;
  std::string printed;
  const std::string log = logOf(
      [&] { printed = printedBy([&] { status = toolchain::codesign_allocate::run(arguments); }); });
  return std::to_string(status) + " " + printed + log;
}

class CodesignAllocateTest : public testing::Test {
 protected:
  [[nodiscard]] std::string loadCommands(const char* name) const {
    return outputOf({llvmTool("llvm-otool"), "-l", "-arch", "all", folder_ / name});
  }
  /// One slice, as llvm-lipo takes it out.
  [[nodiscard]] std::string slice(const char* name, const char* architecture) const {
    outputOf({llvmTool("llvm-lipo"), "-thin", architecture, folder_ / name, "-output",
              folder_ / "thin"});
    return contentsOf(folder_ / "thin");
  }

  TemporaryFolder folder_;
  const std::string in_ = folder_.write("in", contentsOf(universalExecutable()));
  const std::string out_ = folder_ / "out";
};

TEST_F(CodesignAllocateTest, MakesRoomInEverySliceAndTakesItAwayAgain) {
  fs::permissions(in_, fs::perms(0751));
  ASSERT_EQ(runOf({"-i", in_, "-a", "armv7", "4096", "-A", "16777228", "0", "8192", "-o", out_}),
            "0 ");
  EXPECT_EQ(fs::status(out_).permissions(), fs::perms(0751));
  EXPECT_THAT(loadCommands("out"), AllOf(HasSubstr("datasize 4096"), HasSubstr("datasize 8192")));
  // llvm-objdump refuses a file whose load commands do not fit it.
  EXPECT_THAT(outputOf({llvmTool("llvm-objdump"), "--macho", "--all-headers", "--arch=all",
                        "--universal-headers", out_}),
              AllOf(HasSubstr("offset 16384"), HasSubstr("align 2^14 (16384)")));
  EXPECT_TRUE(slice("out", "arm64").ends_with(std::string(8192, '\0')));
  EXPECT_EQ(contentsOf(out_).find(slice("out", "arm64")),
            contentsOf(out_).size() - slice("out", "arm64").size());
  ASSERT_EQ(runOf({"-i", out_, "-r", "-o", folder_ / "bare"}), "0 ");
  EXPECT_THAT(loadCommands("bare"), Not(HasSubstr("LC_CODE_SIGNATURE")));
  // Taking away what was added gives the linker's code again.
  for (const char* architecture : {"armv7", "arm64"}) {
    std::string before = slice("in", architecture);
    const std::string after = slice("bare", architecture);
    before.resize((before.size() + 15) / 16 * 16);
    EXPECT_LE(before.size() - after.size(), 15U);
    EXPECT_EQ(before.substr(0x1000, after.size() - 0x1000), after.substr(0x1000));
  }
}

TEST_F(CodesignAllocateTest, SaysWhatIsWrongAndWritesNothing) {
  const std::string usage = "usage: codesign_allocate -i INPUT";
  struct Row {
    const char* name;
    std::vector<std::string> arguments;
    std::string line;
  };
  for (const auto& [name, arguments, line] : {
           Row{"no input", {"-o", out_, "-r"}, "2 codesign_allocate: no input file, -i\n" + usage},
           Row{"no output", {"-i", in_, "-r"}, "2 codesign_allocate: no output file, -o\n" + usage},
           Row{"neither", {"-i", in_, "-o", out_}, "2 codesign_allocate: no size, -a or -A, and "},
           Row{"both",
               {"-i", in_, "-o", out_, "-r", "-a", "arm64", "16"},
               "2 codesign_allocate: -r goes without sizes\n"},
           Row{"unknown option", {"-x"}, "2 codesign_allocate: unknown option \"-x\"\n"},
           Row{"no value", {"-a", "arm64"}, "2 codesign_allocate: -a lacks a value\n"},
           Row{"another architecture",
               {"-a", "arm\t65", "16"},
               "2 codesign_allocate: unknown architecture \"arm\\t65\"\n"},
           Row{"no number", {"-A", "1", "1", "many"}, "2 codesign_allocate: \"many\" is not a num"},
           Row{"a slice without size",
               {"-i", in_, "-o", out_, "-a", "arm64", "16"},
               "1 codesign_allocate: " + in_ + ": no size was given for slice armv7\n"},
           Row{"an odd size",
               {"-i", in_, "-o", out_, "-a", "arm64", "8", "-a", "armv7", "16"},
               "1 codesign_allocate: " + in_ + ": arm64: size 8 is not a multiple of 16\n"},
           Row{"size 0",
               {"-i", in_, "-o", out_, "-a", "arm64", "0", "-a", "armv7", "16"},
               "1 codesign_allocate: " + in_ + ": arm64: size 0 is not a multiple of 16\n"},
           Row{"a slice that is not there",
               {"-i", in_, "-o", out_, "-A", "7", "77", "16"},
               "1 codesign_allocate: " + in_ + ": no slice is named cputype 7 subtype 77\n"},
           Row{"no such input",
               {"-i", out_, "-o", out_, "-r"},
               "1 codesign_allocate: cannot open " + out_ + ": No"},
           Row{"no such folder",
               {"-i", in_, "-o", out_ + "/out", "-r"},
               "1 codesign_allocate: " + in_ + ": cannot write " + out_ + "/out"},
       }) {
    EXPECT_THAT(runOf(arguments), StartsWith(line)) << name;
    EXPECT_FALSE(fs::exists(out_)) << name;
  }
  EXPECT_THAT(runOf({"--help"}), StartsWith("0 " + usage));
}

}  // namespace
