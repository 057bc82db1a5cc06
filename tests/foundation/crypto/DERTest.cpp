#include "foundation/crypto/DER.h"
#include "tests/support/Test.h"

namespace foundation::DER {
namespace {

TEST(DER, MalformedElementsAreNone) {
  for (const char* bytes : {"", "04", "0401", "048101", "1f0101", "0480", "0484ffffffff", "0489"}) {
    const std::string element = fromHex(bytes);
    EXPECT_FALSE(headerOf(bytesOf(element))) << bytes;
    EXPECT_FALSE(Reader(bytesOf(element)).next()) << bytes;
  }
  const std::string two = fromHex("040101 020101");
  EXPECT_FALSE(single(bytesOf(two), kOctetString)) << "bytes follow";
  EXPECT_FALSE(single(bytesOf(two).first(3), kInteger)) << "another tag";
}

TEST(DER, ObjectIdentifiersHaveTwoForms) {
  for (const char* dotted : {"1.2.840.113635.100.9.2", "2.5.4.3", "0.9", "2.999.1"}) {
    const std::string whole = objectIdentifier(dotted);
    EXPECT_EQ(DER::dotted(single(bytesOf(whole), kObjectIdentifier)->content), dotted);
  }
  for (const char* dotted : {"", "1", "1.", "1.x", "3.1", "1.40", "1..2", "1.2."}) {
    EXPECT_EQ(objectIdentifier(dotted), "") << dotted;
  }
  for (const char* content : {"", "80", "2a80"}) {
    EXPECT_EQ(dotted(bytesOf(fromHex(content))), "") << content;
  }
  EXPECT_EQ(dotted(bytesOf(std::string(1000, '\1'))), "");
}

}  // namespace
}  // namespace foundation::DER
