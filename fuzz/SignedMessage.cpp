// CMS messages in DER and BER, as signatures carry them.
#include "foundation/crypto/CMS.h"
#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto signer =
      foundation::CMS::verifyDetached(fuzz::bytesOf(data, size), foundation::bytesOf("content"));
  if (signer) fuzz::require(!signer->chain.empty());
  return 0;
}
