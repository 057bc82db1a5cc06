#include "inspect/SignatureFacts.h"

#include <algorithm>

#include "toolchain/Blobs.h"
#include "toolchain/CodeBundle.h"
#include "toolchain/CodeDirectory.h"
#include "toolchain/Entitlements.h"
#include "toolchain/SignatureContent.h"

namespace inspect {

using foundation::Result;
using foundation::Value;

namespace {

bool isEncrypted(const toolchain::Image& image) {
  return std::ranges::any_of(image.slices(), [](const auto& s) { return s.cryptIdentifier != 0; });
}

Result<> readEntitlements(const toolchain::SuperBlob& signature, SignatureFacts& facts) {
  const auto* entry = signature.find(toolchain::slot::kEntitlements);
  if (!entry) return {};
  const auto payload = toolchain::blobPayload(entry->bytes, toolchain::magic::kEntitlements);
  if (!payload) return payload.error();
  if (payload->empty()) return {};
  auto entitlements = toolchain::parseEntitlements(*payload);
  if (!entitlements) return entitlements.error();
  facts.entitlements = std::move(entitlements->dictionary);
  return {};
}

bool isApplesOwn(const toolchain::SuperBlob& signature,
                 const std::vector<toolchain::CodeDirectory>& directories,
                 toolchain::RootTest isAppleRoot) {
  const auto signer = toolchain::checkedSigner(signature, directories);
  return signer && *signer && toolchain::isAppleOwn((*signer)->chain, isAppleRoot);
}

Result<> readSignature(foundation::Bytes area, toolchain::RootTest isAppleRoot,
                       SignatureFacts& facts) {
  const auto signature = toolchain::SuperBlob::parse(area, toolchain::magic::kEmbeddedSignature);
  if (!signature) return signature.error();
  const auto directories = toolchain::codeDirectories(*signature);
  if (!directories) return directories.error();
  facts.isSigned = true;
  facts.isApplesOwn = isApplesOwn(*signature, *directories, isAppleRoot);
  facts.teamIdentifier = directories->front().fields.teamIdentifier;
  return readEntitlements(*signature, facts);
}

bool covers(const std::string& pattern, const std::string& text) {
  if (!pattern.ends_with('*')) return pattern == text;
  return text.starts_with(std::string_view(pattern).substr(0, pattern.size() - 1));
}

bool anyGrants(const foundation::Array& patterns, const Value& value) {
  return std::ranges::any_of(patterns,
                             [&](const Value& pattern) { return grants(pattern, value); });
}

}  // namespace

Result<SignatureFacts> signatureFacts(const std::filesystem::path& code,
                                      toolchain::RootTest isAppleRoot) {
  const auto bundle = toolchain::CodeBundle::open(code);
  if (!bundle) return bundle.error();
  const auto opened = toolchain::openImage(*bundle);
  if (!opened) return opened.error();
  SignatureFacts facts;
  facts.isEncrypted = isEncrypted(opened->image);
  const auto& slices = opened->image.slices();
  if (slices.empty() || !slices.front().signature) return facts;
  const auto read = readSignature(opened->image.signatureArea(slices.front()), isAppleRoot, facts);
  if (!read) return read.error();
  return facts;
}

bool grants(const Value& pattern, const Value& value) {
  if (const auto* values = value.array()) {
    const auto granted = [&](const Value& one) { return grants(pattern, one); };
    return std::ranges::all_of(*values, granted);
  }
  if (const auto* patterns = pattern.array()) return anyGrants(*patterns, value);
  if (const auto* wanted = value.boolean()) {
    const auto* granted = pattern.boolean();
    return !*wanted || (granted && *granted);
  }
  const auto* text = value.string();
  if (const auto* textPattern = pattern.string(); textPattern && (text || *textPattern == "*")) {
    return !text || covers(*textPattern, *text);
  }
  return pattern == value;
}

}  // namespace inspect
