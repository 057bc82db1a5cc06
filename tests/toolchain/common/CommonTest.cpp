// What all rooms of the toolchain share: error texts, work on all cores, their `main`.
#include "tests/support/Test.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/Parallel.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/common/ToolMain.h"

namespace {

using toolchain::Fault;

TEST(SignatureFaultTest, TheErrorCarriesItsKind) {
  const auto nested = toolchain::within("x", toolchain::faultError(Fault::nestedCode, "why"));
  EXPECT_EQ(nested.localizedDescription(), "x: nested code is modified or invalid: why");
  const std::string lookalike = std::string(toolchain::reason(Fault::sealedResource)) + ": why";
  for (const auto& [error, fault, detail] : std::vector<std::tuple<Error, Fault, std::string>>{
           {nested, Fault::nestedCode, "x: why"},
           {toolchain::within("x", toolchain::faultError(Fault::nestedCode)), Fault::nestedCode,
            "x"},
           {toolchain::failure(lookalike), Fault::objectFormat, lookalike}}) {
    const auto parts = toolchain::faultParts(error, Fault::objectFormat);
    EXPECT_EQ(parts.fault, fault) << detail;
    EXPECT_EQ(parts.detail, detail);
  }
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
  const auto run = [](const std::vector<std::string>&) -> int {
    throw std::runtime_error("bad\x1b news");
  };
  const auto runTool = [&] { EXPECT_EQ(toolchain::toolMain("tool", 0, nullptr, run), 1); };
  EXPECT_EQ(logOf(runTool), "tool: bad\\u001b news\n");
}

}  // namespace
