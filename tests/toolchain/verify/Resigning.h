#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "foundation/crypto/CMS.h"
#include "tests/support/Identities.h"
#include "toolchain/signature/CodeDirectory.h"

namespace test {

/// One slice's signature taken apart. A test changes what it likes; putting it together makes every
/// hash and the CMS anew, so that nothing but the change is wrong.
struct SignatureParts {
  /// Whole blobs by slot, without CodeDirectories and CMS.
  std::map<std::uint32_t, std::string> blobs;
  /// In slot order.
  std::vector<toolchain::CodeDirectoryFields> directories;
  /// Hashes of what is no blob: Info.plist and the seal; one set for each directory.
  std::vector<toolchain::SpecialHashes> files;

  // What to do wrong.
  /// Slots to leave out of the hashes, and slots to give a hash with nothing behind it.
  std::set<std::uint32_t> uncovered;
  std::set<std::uint32_t> dangling;
  /// In place of the property list of hashes, in DER; an empty text: none.
  std::optional<std::string> hashPlist;
  bool withHashList = true;
  /// False: the signature is over the primary directory itself.
  bool withAttributes = true;
  /// Directories that the lists of hashes tell of; absent: all.
  std::optional<std::size_t> listed;
  std::vector<foundation::Certificate> certificates;
  /// In place of the CMS; an empty text is an empty wrapper.
  std::optional<std::string> message;
  bool withWrapper = true;
};

SignatureParts takeApart(const std::filesystem::path& executable, std::size_t slice);
void putTogether(const std::filesystem::path& executable, const SignatureParts& parts,
                 const Family& family, std::size_t slice);

}  // namespace test
