#include "toolchain/seal/ResourceSeal.h"

#include <algorithm>

#include "foundation/format/PropertyList.h"
#include "foundation/format/XMLWriter.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

using foundation::Dictionary;
using foundation::Value;

using foundation::PropertyList::XMLWriter;

Value dataOf(Bytes bytes) { return foundation::Data(nullptr, bytes); }

/// Keys in byte order, as everywhere.
void write(XMLWriter& out, const SealedItem& item) {
  const auto entry = [&out](std::string_view key, const Value& value) {
    out.key(key);
    out.value(value);
  };
  out.beginDictionary();
  if (item.cdHash) entry("cdhash", dataOf(foundation::bytesOf(*item.cdHash)));
  if (item.sha1) entry("hash", dataOf(*item.sha1));
  if (item.sha256) entry("hash2", dataOf(*item.sha256));
  if (item.optional) entry("optional", true);
  if (item.cdHash) entry("requirement", item.requirement);
  if (item.linkTarget) entry("symlink", *item.linkTarget);
  out.endDictionary();
}

enum class BareHashes { allowed, never };

void write(XMLWriter& out, std::string_view name, const SealedItems& items, BareHashes bareHashes) {
  out.key(name);
  out.beginDictionary();
  for (const auto& [path, item] : items) {
    out.key(path);
    if (bareHashes == BareHashes::allowed && item.sha1 && !item.optional) {
      out.value(dataOf(*item.sha1));
    } else {
      write(out, item);
    }
  }
  out.endDictionary();
}

/// XML cannot hold every character of a name or a link.
foundation::Error unwritable(const ResourceSeal& seal, const foundation::Error& error) {
  for (const SealedItems* items : {&seal.files, &seal.files2}) {
    for (const auto& [path, item] : *items) {
      if (!XMLWriter::canWrite(path) || !XMLWriter::canWrite(item.linkTarget.value_or(""))) {
        return failure(path + ": its name or link has a character that no seal can hold");
      }
    }
  }
  return error;
}

template <class Digest>
Result<> takeDigest(const Dictionary& item, std::string_view key, std::optional<Digest>& out) {
  const Value* value = foundation::find(item, key);
  if (!value) return {};
  Digest digest;
  if (!value->data() || value->data()->size() != digest.size()) {
    return failure(std::string(key) + " is not " + std::to_string(digest.size()) +
                   " bytes of data");
  }
  const Bytes bytes = value->data()->bytes();
  std::copy(bytes.begin(), bytes.end(), digest.begin());
  out = digest;
  return {};
}

Result<SealedItem> parseItem(const Value& value) {
  SealedItem item;
  if (value.data()) {
    const Dictionary bare = {{"hash", value}};
    const auto taken = takeDigest(bare, "hash", item.sha1);
    if (!taken) return taken.error();
    return item;
  }
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary) return failure("no data or dictionary");
  auto taken = takeDigest(*dictionary, "hash", item.sha1);
  if (taken) taken = takeDigest(*dictionary, "hash2", item.sha256);
  if (!taken) return taken.error();
  item.linkTarget = foundation::stringAt(*dictionary, "symlink");
  item.optional = foundation::boolAt(*dictionary, "optional");
  item.requirement = foundation::stringAt(*dictionary, "requirement").value_or("");
  const Value* cdHash = foundation::find(*dictionary, "cdhash");
  if (cdHash && cdHash->data()) item.cdHash = std::string(cdHash->data()->text());
  if (!item.sha1 && !item.sha256 && !item.linkTarget && !item.cdHash) {
    return failure("neither hash, link nor nested code");
  }
  return item;
}

Result<std::vector<ResourceRule>> rulesAt(const Dictionary& top, std::string_view key) {
  const Value* value = foundation::find(top, key);
  if (!value) return std::vector<ResourceRule>();
  auto rules = parseResourceRules(*value);
  if (!rules) return within(key, rules.error());
  return rules;
}

}  // namespace

Result<std::string> text(const ResourceSeal& seal) {
  XMLWriter out;
  out.beginDictionary();
  write(out, "files", seal.files, BareHashes::allowed);
  write(out, "files2", seal.files2, BareHashes::never);
  out.key("rules");
  out.value(value(seal.rules.rules));
  out.key("rules2");
  out.value(value(seal.rules.rules2));
  out.endDictionary();
  return out.finish().mapError(
      [&](const foundation::Error& error) { return unwritable(seal, error); });
}

Result<ResourceSeal> parseResourceSeal(Bytes file) {
  ResourceSeal seal;
  std::optional<foundation::Error> wrong;
  // The lists are long, so their entries are taken as they come.
  const auto taker = [&wrong](std::string_view list, SealedItems& items) {
    return [&wrong, list, &items](std::string path, const Value& value) {
      auto item = parseItem(value);
      if (!item && !wrong) wrong = within(std::string(list) + ": " + path, item.error());
      const std::size_t before = items.size();
      items.try_emplace(items.end(), std::move(path), item ? *std::move(item) : SealedItem());
      return items.size() != before;
    };
  };
  const auto fail = [](const foundation::Error& error) { return within("CodeResources", error); };
  const auto top = foundation::PropertyList::parseUnambiguous(
      file, {{"files", taker("files", seal.files)}, {"files2", taker("files2", seal.files2)}});
  if (!top) return fail(top.error());
  if (!top->dictionary()) return failure("CodeResources: the top level is not a dictionary");
  for (const char* list : {"files", "files2"}) {
    const Value* value = top->find(list);
    if (value && !value->dictionary())
      return fail(failure(std::string(list) + " is not a dictionary"));
  }
  if (wrong) return fail(*wrong);
  auto rules = rulesAt(*top->dictionary(), "rules");
  if (!rules) return fail(rules.error());
  auto rules2 = rulesAt(*top->dictionary(), "rules2");
  if (!rules2) return fail(rules2.error());
  seal.rules = {*std::move(rules), *std::move(rules2)};
  return seal;
}

}  // namespace toolchain
