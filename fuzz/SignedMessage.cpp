// CMS messages in DER and BER, as signatures carry them.
#include "foundation/crypto/CMS.h"
#include "fuzz/FuzzTarget.h"

void fuzz::readInput(foundation::Bytes input) {
  const auto signer = foundation::CMS::verifyDetached(input, foundation::bytesOf("what is signed"));
  if (signer) fuzz::require(!signer->chain.empty());
}
