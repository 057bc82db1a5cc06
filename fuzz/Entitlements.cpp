// Entitlements: files given to the signer, and the DER form inside signatures.
#include "toolchain/signature/Entitlements.h"

#include "fuzz/FuzzTarget.h"

void fuzz::readInput(foundation::Bytes input) {
  if (const auto parsed = toolchain::parseEntitlements(input)) {
    const auto encoded = toolchain::encodeEntitlements(parsed->dictionary);
    fuzz::require(toolchain::decodeEntitlements(encoded).ok());
  }
  if (const auto decoded = toolchain::decodeEntitlements(input)) {
    toolchain::executableSegmentFlags(*decoded);
  }
}
