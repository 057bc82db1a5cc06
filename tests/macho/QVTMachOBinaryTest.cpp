#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

constexpr char kArm64UUID[] = "00112233445566778899aabbccddeeff";
constexpr char kArmv7UUID[] = "ffeeddccbbaa99887766554433221100";

std::shared_ptr<QVTMachOBinary> binaryOf(const std::string& first, const std::string& second) {
  const TemporaryFolder folder;
  return QVTMachOBinary::MachOBinaryWithPath(
      folder.write("App name%", universalFile({{first}, {second}})).string());
}

TEST(QVTMachOBinaryTest, NamesTheSliceThatHasNoUUID) {
  const auto binary = binaryOf(machO({uuidCommand(kArmv7UUID)}, kARMv7), machO({}, kARMv7));
  EXPECT_EQ(binary->sliceForArchitecture("armv7"), binary->slices()[0]) << "the first";
  EXPECT_FALSE(binary->sliceForArchitecture("ARMV7"));
  std::vector<std::optional<std::string>> uuids;
  binary->enumerateUUIDs([&](const auto& uuid, const auto&) { uuids.push_back(uuid); });
  EXPECT_THAT(uuids, ElementsAre(kArmv7UUID, std::nullopt));
  EXPECT_THAT([&] { std::ignore = binary->instanceIdentifier(); },
              testing::ThrowsMessage<foundation::Exception>(
                  HasSubstr("/App name%: slice 2 of 2 (armv7) has no UUID")));
}

TEST(QVTMachOBinaryTest, ReadsWhatASliceSaysAndNoMore) {
  const std::string build =
      command(macho::LC_BUILD_VERSION, {macho::PLATFORM_IOS, 0xd0000, 0xe0000, 0});
  const std::string all =
      machO({build, uuidCommand(kArmv7UUID), uuidCommand(kArm64UUID), dylibCommand("/usr/lib/one"),
             dylibCommand("/weak", macho::LC_LOAD_WEAK_DYLIB), dylibCommand("/Fr\xc3\xbc\xff"),
             command(macho::LC_VERSION_MIN_IPHONEOS, {0x70000, 0x80000}),
             command(macho::LC_VERSION_MIN_WATCHOS, {0x90102, 0xc0100})});
  const auto slices = binaryOf(all, machO({build}))->slices();
  EXPECT_EQ(slices[0]->uuid(), kArm64UUID);
  EXPECT_THAT(slices[0]->linkedDylibs(), ElementsAre("/usr/lib/one", "/Fr\xc3\xbc\xef\xbf\xbd"));
  EXPECT_EQ(slices[0]->minimumOSVersion(), (macho::QVTMachOVersion{9, 1, 2}));
  EXPECT_EQ(slices[0]->linkedSDKVersion(), (macho::QVTMachOVersion{12, 1, 0}));
  EXPECT_EQ(slices[1]->minimumOSVersion(), macho::QVTMachOVersion{});
}

}  // namespace
