// Provisioning profiles: the property list cut out of a signed message, and its certificates.
#include "fuzz/FuzzTarget.h"
#include "signing/QVTProvisioningProfile.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::MemoryFile file(fuzz::bytesOf(data, size));
  // A folder without keys.
  const auto profile =
      QVTProvisioningProfile::initWithPathKeychainPath(file.path(), "/proc/self/fdinfo");
  if (!profile) return 0;
  fuzz::ignore(profile->description(), profile->certWithPrivateKeyAvailable(),
               profile->matchesBundleIdentifier("com.example.app"),
               profile->file().entitlementsFor("com.example.app"));
  return 0;
}
