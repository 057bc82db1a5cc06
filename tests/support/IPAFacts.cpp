#include "tests/support/IPAFacts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <openssl/sha.h>

#include "foundation/base/Bytes.h"
#include "foundation/base/Text.h"
#include "foundation/format/PropertyList.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

namespace fs = std::filesystem;

namespace {

foundation::Dictionary dictionaryIn(const fs::path& file) {
  auto dictionary = foundation::PropertyList::dictionaryWithContentsOfFile(file);
  if (!dictionary) throw std::runtime_error("no property-list dictionary in " + file.string());
  return *std::move(dictionary);
}

/// The content of the signed message; checks its signature against the certificate in it.
foundation::Dictionary profileIn(const fs::path& app, const fs::path& scratch) {
  outputOf({"openssl", "cms", "-verify", "-noverify", "-inform", "DER", "-in",
            (app / "embedded.mobileprovision").string(), "-out", scratch.string()});
  return dictionaryIn(scratch);
}

std::set<std::string> devicesIn(const foundation::Dictionary& profile) {
  std::set<std::string> devices;
  if (const auto* const listed = foundation::arrayAt(profile, "ProvisionedDevices")) {
    for (const foundation::Value& device : *listed) devices.insert(*device.string());
  }
  return devices;
}

std::string instanceIdentifierOf(std::vector<std::pair<std::string, std::string>> slices) {
  std::ranges::stable_sort(slices, {}, &std::pair<std::string, std::string>::first);
  std::string text;
  for (const auto& [architecture, uuid] : slices) text += uuid;
  std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
  SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return foundation::lowercaseHex(std::as_bytes(std::span(digest)));
}

}  // namespace

std::vector<std::pair<std::string, std::string>> slicesOf(const fs::path& executable) {
  std::vector<std::pair<std::string, std::string>> slices;
  // "UUID: 00112233-4455-6677-8899-AABBCCDDEEFF (arm64) path"
  const std::string output = outputOf({llvmTool("llvm-dwarfdump"), "--uuid", executable.string()});
  for (const std::string& line : foundation::split(output, '\n')) {
    std::istringstream words(line);
    std::string label, uuid, architecture;
    words >> label >> uuid >> architecture;
    if (label != "UUID:" || architecture.size() < 3) continue;
    std::erase(uuid, '-');
    slices.emplace_back(architecture.substr(1, architecture.size() - 2),
                        foundation::lowercased(uuid));
  }
  return slices;
}

fs::path unpackIPA(const fs::path& ipa, const fs::path& folder) {
  outputOf({"unzip", "-qo", ipa.string(), "-d", folder.string()});
  for (const auto& entry : fs::directory_iterator(folder / "Payload")) {
    if (entry.path().extension() == ".app") return entry.path();
  }
  throw std::runtime_error("no app in the .ipa's Payload");
}

IPAFacts factsOf(const std::string& ipaBytes) {
  const TemporaryFolder folder;
  const fs::path ipa = folder.write("received.zip", ipaBytes);
  const fs::path app = unpackIPA(ipa, folder / "unpacked");
  IPAFacts facts;
  facts.info = dictionaryIn(app / "Info.plist");
  facts.profile = profileIn(app, folder / "profile.plist");
  facts.devices = devicesIn(facts.profile);
  facts.slices =
      slicesOf(app / foundation::stringAt(facts.info, "CFBundleExecutable").value_or("none"));
  facts.instanceIdentifier = instanceIdentifierOf(facts.slices);
  facts.names = foundation::split(outputOf({"unzip", "-Z1", ipa.string()}), '\n');
  facts.names.pop_back();  // after the last newline
  return facts;
}

}  // namespace test
