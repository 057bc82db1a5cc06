#include "macho/QVTMachOBinary.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/Test.h"

namespace {

constexpr char kArm64UUID[] = "00112233445566778899aabbccddeeff";
constexpr char kArmv7UUID[] = "ffeeddccbbaa99887766554433221100";

class QVTMachOBinaryTest : public testing::Test {
 protected:
  std::shared_ptr<QVTMachOBinary> open(const std::string& bytes) {
    return QVTMachOBinary::MachOBinaryWithPath(folder_.write("App name%", bytes).string());
  }
  std::shared_ptr<QVTMachOBinary> open(const MachOImage& image) { return open(image.bytes()); }
  std::shared_ptr<QVTMachOBinary> open(const MachOImage& first, const MachOImage& second) {
    return open(universalFile({FatSlice::of(first), FatSlice::of(second)}));
  }

  const MachOImage arm64_ = MachOImage::arm64().uuid(kArm64UUID);
  const MachOImage armv7_ = MachOImage::armv7().uuid(kArmv7UUID);
  TemporaryFolder folder_;
};

TEST_F(QVTMachOBinaryTest, IdentifiesABuildByItsUUIDsInTheOrderOfNames) {
  const auto thin = open(arm64_);
  EXPECT_EQ(thin->instanceIdentifier(), "2ab31b2b0c25d5f6cbc9e082f80ab7cd27ec6315");
  EXPECT_EQ(thin->path(), (folder_ / "App name%").string());

  const auto fat = open(armv7_, arm64_);
  EXPECT_EQ(fat->instanceIdentifier(), "0b456a320d99802056f5a03415ac6ef994c058b9");
  EXPECT_EQ(&fat->instanceIdentifier(), &fat->instanceIdentifier());
  std::vector<std::pair<std::string, std::string>> seen;
  fat->enumerateUUIDs(
      [&](const auto& uuid, const auto& name) { seen.emplace_back(name, uuid.value_or("")); });
  EXPECT_THAT(seen, ElementsAre(Pair("armv7", kArmv7UUID), Pair("arm64", kArm64UUID)));
}

TEST_F(QVTMachOBinaryTest, NamesTheSliceThatHasNoUUID) {
  const auto binary = open(arm64_, MachOImage::armv7());
  EXPECT_THAT([&] { std::ignore = binary->instanceIdentifier(); },
              testing::ThrowsMessage<foundation::Exception>(
                  StartsWith(binary->path() + ": slice 2 of 2 (armv7) has no UUID")));
  EXPECT_THROW(std::ignore = open("text is not a program")->instanceIdentifier(),
               foundation::Exception);
}

TEST_F(QVTMachOBinaryTest, ReadsWhatASliceSaysAndNoMore) {
  const auto slice = open(MachOImage::arm64()
                              .uuid(kArmv7UUID)
                              .uuid(kArm64UUID)
                              .dylib("/usr/lib/one")
                              .dylib("/weak", macho::LC_LOAD_WEAK_DYLIB)
                              .dylib("/again", macho::LC_REEXPORT_DYLIB)
                              .dylib("/lazy", macho::LC_LAZY_LOAD_DYLIB)
                              .dylib("/upward", macho::LC_LOAD_UPWARD_DYLIB)
                              .dylib("/Fr\xc3\xbc\xff")
                              .versionMin(macho::LC_VERSION_MIN_IPHONEOS, 0x70000, 0x80000)
                              .versionMin(macho::LC_VERSION_MIN_WATCHOS, 0x90102, 0xc0100)
                              .buildVersion(macho::PLATFORM_IOS, 0xd0000, 0xe0000))
                         ->slices()
                         .at(0);
  EXPECT_EQ(slice->uuid(), kArm64UUID);
  EXPECT_THAT(slice->linkedDylibs(), ElementsAre("/usr/lib/one", "/Fr\xc3\xbc\xef\xbf\xbd"));
  EXPECT_EQ(slice->minimumOSVersion(), (macho::QVTMachOVersion{9, 1, 2}));
  EXPECT_EQ(slice->linkedSDKVersion(), (macho::QVTMachOVersion{12, 1, 0}));
  const auto newer = open(MachOImage::arm64().buildVersion(macho::PLATFORM_IOS, 0xd0000, 0xe0000));
  EXPECT_EQ(newer->slices().at(0)->minimumOSVersion(), macho::QVTMachOVersion{});
}

TEST_F(QVTMachOBinaryTest, FindsTheFirstSliceOfAName) {
  const auto binary = open(arm64_, MachOImage::arm64());
  EXPECT_EQ(binary->sliceForArchitecture("arm64"), binary->slices()[0]);
  EXPECT_FALSE(binary->sliceForArchitecture("ARM64"));
  EXPECT_FALSE(QVTMachOBinary::MachOBinaryWithPath((folder_ / "missing").string()));
}

}  // namespace
