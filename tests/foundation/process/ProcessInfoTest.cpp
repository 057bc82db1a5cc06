#include <regex>
#include <set>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/process/ProcessInfo.h"
#include "tests/support/OtherProcess.h"

namespace {

namespace ProcessInfo = foundation::ProcessInfo;

TEST(ProcessInfo, UniqueStringsAreUniqueInOtherProcessesToo) {
  std::set<std::string> seen;
  for (int i = 0; i < 2; ++i) {
    seen.insert(ProcessInfo::globallyUniqueString());
    seen.insert(test::inChildProcess(ProcessInfo::globallyUniqueString));
  }
  EXPECT_EQ(seen.size(), 4U);
  for (const std::string& text : seen) EXPECT_EQ(text.find('/'), text.npos);
}

TEST(ProcessInfo, UUIDs) {
  const unsigned char bytes[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                   0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
  EXPECT_EQ(ProcessInfo::uuidString(bytes), "00112233-4455-6677-8899-AABBCCDDEEFF");
  const std::regex random("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  EXPECT_TRUE(std::regex_match(ProcessInfo::newUUIDString(), random));
  EXPECT_NE(ProcessInfo::newUUIDString(), ProcessInfo::newUUIDString());
}

TEST(ProcessRecord, AProcessThatIsGoneHasAnEmptyRecord) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  for (const pid_t process : {child, 0, -1}) {
    const auto record = foundation::processRecord(process);
    ASSERT_TRUE(record) << process;
    EXPECT_EQ(record->processIdentifier, 0);
    EXPECT_EQ(record->commandName, "");
  }
}

}  // namespace
