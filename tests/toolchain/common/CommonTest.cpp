// What all rooms of the toolchain share: error texts, numbers, work on all cores, their `main`.
#include "tests/support/Test.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/Parallel.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/common/ToolMain.h"

namespace {

using toolchain::Fault;

TEST(SignatureFaultTest, TheErrorCarriesItsKind) {
  const std::string foreign = std::string(toolchain::reason(Fault::sealedResource)) + ": why";
  const struct {
    const char* name;
    Error error;
    Fault fault;
    std::string detail;
  } rows[] = {
      {"with detail", toolchain::faultError(Fault::nestedCode, "why"), Fault::nestedCode, "why"},
      {"without", toolchain::faultError(Fault::nestedCode), Fault::nestedCode, ""},
      {"in a place", toolchain::within("x", toolchain::faultError(Fault::nestedCode, "why")),
       Fault::nestedCode, "x: why"},
      {"in a place, without", toolchain::within("x", toolchain::faultError(Fault::nestedCode)),
       Fault::nestedCode, "x"},
      {"another's text that reads like a fault", toolchain::failure(foreign), Fault::objectFormat,
       foreign},
  };
  for (const auto& row : rows) {
    const auto parts = toolchain::faultParts(row.error, Fault::objectFormat);
    EXPECT_EQ(parts.fault, row.fault) << row.name;
    EXPECT_EQ(parts.detail, row.detail) << row.name;
  }
  EXPECT_EQ(rows[2].error.localizedDescription(), "x: nested code is modified or invalid: why");
}

TEST(MessagesTest, ANumberIsWholeOrAbsent) {
  EXPECT_EQ(toolchain::wholeNumber<std::uint32_t>("4294967295"), 4294967295U);
  EXPECT_EQ(toolchain::wholeNumber<int>("-7"), -7);
  for (const char* other : {"", "4294967296", "-1", "1 ", " 1", "0x1", "+1"}) {
    EXPECT_FALSE(toolchain::wholeNumber<std::uint32_t>(other)) << other;
  }
  EXPECT_EQ(toolchain::hex(0xfade0cc0), "0xfade0cc0");
}

TEST(ParallelTest, EachItemIsWorkedOnOnce) {
  for (const std::size_t count : {0, 1, 999, 1000}) {
    std::vector<int> visits(count);
    toolchain::inParallel(count, 10, [&] {
      return [&](std::size_t begin, std::size_t end) {
        EXPECT_LE(end - begin, 10U);
        for (; begin < end; ++begin) ++visits[begin];
      };
    });
    EXPECT_THAT(visits, Each(1)) << count;
  }
}

TEST(ToolMainTest, AnExceptionIsPrintedAndDecidesTheStatus) {
  char name[] = "tool";
  char option[] = "--option";
  char* arguments[] = {name, option, nullptr};
  const auto run = [](const std::vector<std::string>& words) -> int {
    if (words.empty()) throw std::runtime_error("bad\x1b news");
    return words == std::vector<std::string>{"--option"} ? 7 : 8;
  };
  EXPECT_EQ(toolchain::toolMain("tool", 2, arguments, run), 7);
  EXPECT_EQ(logOf([&] { EXPECT_EQ(toolchain::toolMain("tool", 0, arguments, run), 1); }),
            "tool: bad\\u001b news\n");
}

}  // namespace
