// CMS messages in DER and BER, as signatures carry them.
#include "foundation/crypto/CMS.h"
#include "foundation/crypto/DER.h"
#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const foundation::Bytes bytes = fuzz::bytesOf(data, size);
  fuzz::ignore(foundation::DER::definiteForm(bytes));
  const auto signer = foundation::CMS::verifyDetached(bytes, foundation::bytesOf("content"));
  if (signer) fuzz::require(!signer->chain.empty());
  return 0;
}
