// Provisioning profiles: the property list cut out of a signed message, and its certificates.
#include "fuzz/FuzzTarget.h"
#include "signing/QVTProvisioningProfile.h"

void fuzz::readInput(foundation::Bytes input) {
  const fuzz::MemoryFile file(input);
  // A folder without keys.
  const auto profile =
      QVTProvisioningProfile::initWithPathKeychainPath(file.path(), "/proc/self/fdinfo");
  if (!profile) return;
  fuzz::ignore(profile->description(), profile->certWithPrivateKeyAvailable(),
               profile->matchesBundleIdentifier("com.example.app"),
               profile->file().entitlementsFor("com.example.app"));
}
