// Signed Mach-O files as the signing tools read and verify them.
#include "foundation/format/PropertyList.h"
#include "fuzz/FuzzTarget.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/verify/SignatureCheck.h"

void fuzz::readInput(foundation::Bytes file) {
  toolchain::looksLikeMachO(file);
  const auto image = toolchain::MachOFile::parse(file);
  if (!image) return;
  for (const toolchain::Slice& slice : image->slices()) {
    const foundation::Bytes code = image->bytesOf(slice);
    if (const auto list = image->embeddedInfoPlist(slice)) {
      fuzz::ignore(foundation::PropertyList::parse(*list));
    }
    fuzz::ignore(toolchain::checkSegments(slice));
    if (!slice.signature) continue;
    fuzz::ignore(toolchain::checkSignature({.slice = slice,
                                            .signature = image->signatureArea(slice),
                                            .code = {code.first(slice.signature->data.offset)},
                                            .takenHashes = {},
                                            .infoPlist = {},
                                            .resources = {}}));
  }
}
