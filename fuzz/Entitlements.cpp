// Entitlements: files given to the signer, and the DER form inside signatures.
#include "toolchain/signature/Entitlements.h"

#include "fuzz/FuzzTarget.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const foundation::Bytes bytes = fuzz::bytesOf(data, size);
  if (const auto parsed = toolchain::parseEntitlements(bytes)) {
    const auto encoded = toolchain::encodeEntitlements(parsed->dictionary);
    fuzz::require(toolchain::decodeEntitlements(encoded).ok());
  }
  if (const auto decoded = toolchain::decodeEntitlements(bytes)) {
    toolchain::executableSegmentFlags(*decoded);
  }
  return 0;
}
