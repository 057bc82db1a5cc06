#include "toolchain/seal/ResourceSeal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "foundation/base/Base64.h"
#include "foundation/format/PropertyList.h"
#include "toolchain/common/Messages.h"
#include "toolchain/seal/private/SealScanner.h"

namespace toolchain {

namespace {

using foundation::Dictionary;
using foundation::Value;

/// Writes the property list the way the platform's own tool does, to the byte.
class SealWriter {
 public:
  explicit SealWriter(std::size_t itemCount) {
    constexpr std::size_t kBytesPerItem = 320;
    out_.reserve(itemCount * kBytesPerItem + 4096);
    out_ += kSealHeader;
  }

  void items(std::string_view name, const SealedItems& items, bool bareHashes) {
    key(1, name);
    if (items.empty()) return line(1, "<dict/>");
    line(1, "<dict>");
    for (const auto& [path, item] : items) {
      key(2, path);
      if (bareHashes && item.sha1 && !item.optional) {
        data(2, *item.sha1);
      } else {
        this->item(item);
      }
    }
    line(1, "</dict>");
  }

  void rules(std::string_view name, std::vector<ResourceRule> rules) {
    key(1, name);
    if (rules.empty()) return line(1, "<dict/>");
    std::sort(rules.begin(), rules.end(),
              [](const ResourceRule& a, const ResourceRule& b) { return a.pattern < b.pattern; });
    line(1, "<dict>");
    for (const ResourceRule& one : rules) rule(one);
    line(1, "</dict>");
  }

  std::string finish() {
    out_ += "</dict>\n</plist>\n";
    return std::move(out_);
  }

 private:
  void indent(std::size_t depth) { out_.append(depth, '\t'); }
  void line(std::size_t depth, std::string_view text) {
    indent(depth);
    out_ += text;
    out_ += '\n';
  }
  void escaped(std::string_view text) {
    for (const char c : text) {
      if (c == '&') {
        out_ += "&amp;";
      } else if (c == '<') {
        out_ += "&lt;";
      } else if (c == '>') {
        out_ += "&gt;";
      } else {
        out_ += c;
      }
    }
  }
  void element(std::size_t depth, std::string_view name, std::string_view text) {
    indent(depth);
    out_.append("<").append(name).append(">");
    escaped(text);
    out_.append("</").append(name).append(">\n");
  }
  void key(std::size_t depth, std::string_view text) { element(depth, "key", text); }
  void data(std::size_t depth, Bytes bytes) {
    line(depth, "<data>");
    indent(depth);
    foundation::appendBase64(out_, bytes);
    out_ += '\n';
    line(depth, "</data>");
  }

  /// Keys in byte order: cdhash, hash, hash2, optional, requirement, symlink.
  void item(const SealedItem& item) {
    line(2, "<dict>");
    if (item.cdHash) {
      key(3, "cdhash");
      data(3, foundation::bytesOf(*item.cdHash));
    }
    if (item.sha1) {
      key(3, "hash");
      data(3, *item.sha1);
    }
    if (item.sha256) {
      key(3, "hash2");
      data(3, *item.sha256);
    }
    if (item.optional) flag("optional");
    if (item.cdHash) {
      key(3, "requirement");
      element(3, "string", item.requirement);
    }
    if (item.linkTarget) {
      key(3, "symlink");
      element(3, "string", *item.linkTarget);
    }
    line(2, "</dict>");
  }

  void flag(std::string_view name) {
    key(3, name);
    line(3, "<true/>");
  }

  void rule(const ResourceRule& rule) {
    key(2, rule.pattern);
    const bool isPlain = rule.weight == 1 && !rule.optional && !rule.nested;
    if (isPlain) return line(2, rule.omitted ? "<false/>" : "<true/>");
    line(2, "<dict>");
    if (rule.nested) flag("nested");
    if (rule.omitted) flag("omit");
    if (rule.optional) flag("optional");
    if (rule.weight != 1) {
      std::array<char, 32> digits{};
      const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), rule.weight).ptr;
      key(3, "weight");
      element(3, "real", {digits.data(), end});
    }
    line(2, "</dict>");
  }

  std::string out_;
};

Result<double> weightOf(const Value& value) {
  if (const double* real = value.real(); real && std::isfinite(*real)) return *real;
  if (const auto* integer = value.integer()) return static_cast<double>(*integer);
  return failure("weight is no number");
}

Result<ResourceRule> parseRule(const std::string& pattern, const Value& value) {
  ResourceRule rule{.pattern = pattern};
  if (const bool* included = value.boolean()) {
    rule.omitted = !*included;
    return rule;
  }
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary) return failure("resource rule \"" + pattern + "\" is no boolean or dictionary");
  rule.omitted = foundation::boolAt(*dictionary, "omit");
  rule.optional = foundation::boolAt(*dictionary, "optional");
  rule.nested = foundation::boolAt(*dictionary, "nested");
  if (const Value* weight = foundation::find(*dictionary, "weight")) {
    const auto number = weightOf(*weight);
    if (!number) return within("resource rule \"" + pattern + "\"", number.error());
    rule.weight = *number;
  }
  return rule;
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

Result<SealedItems> parseItems(const Dictionary& top, std::string_view key) {
  SealedItems items;
  const Value* value = foundation::find(top, key);
  if (!value) return items;
  if (!value->dictionary()) return failure(std::string(key) + " is no dictionary");
  for (const auto& [path, entry] : *value->dictionary()) {
    auto item = parseItem(entry);
    if (!item) return within(std::string(key) + ": " + path, item.error());
    items.emplace_hint(items.end(), path, std::move(*item));
  }
  return items;
}

Result<std::vector<ResourceRule>> rulesAt(const Dictionary& top, std::string_view key) {
  const Value* value = foundation::find(top, key);
  if (!value) return std::vector<ResourceRule>();
  auto rules = parseResourceRules(*value);
  if (!rules) return within(key, rules.error());
  return rules;
}

Result<ResourceSeal> sealFrom(const Dictionary& top) {
  auto files = parseItems(top, "files");
  if (!files) return files.error();
  auto files2 = parseItems(top, "files2");
  if (!files2) return files2.error();
  auto rules = rulesAt(top, "rules");
  if (!rules) return rules.error();
  auto rules2 = rulesAt(top, "rules2");
  if (!rules2) return rules2.error();
  return ResourceSeal{
      std::move(*files), std::move(*files2), {std::move(*rules), std::move(*rules2)}};
}

}  // namespace

std::string text(const ResourceSeal& seal) {
  SealWriter writer(seal.files.size() + seal.files2.size());
  writer.items("files", seal.files, true);
  writer.items("files2", seal.files2, false);
  writer.rules("rules", seal.rules.rules);
  writer.rules("rules2", seal.rules.rules2);
  return writer.finish();
}

Result<ResourceSeal> parseResourceSeal(Bytes file) {
  // The lists are long and nearly always laid out in one way; the rest is small.
  ScannedSeal scanned = scanSeal(foundation::textOf(file));
  const auto value = foundation::PropertyList::parseUnambiguous(foundation::bytesOf(scanned.rest));
  if (!value) return within("CodeResources", value.error());
  if (!value->dictionary()) return failure("CodeResources: the top is no dictionary");
  auto seal = sealFrom(*value->dictionary());
  if (!seal) return within("CodeResources", seal.error());
  if (scanned.files) seal->files = std::move(*scanned.files);
  if (scanned.files2) seal->files2 = std::move(*scanned.files2);
  return seal;
}

Value value(const std::vector<ResourceRule>& rules) {
  Dictionary result;
  for (const ResourceRule& rule : rules) {
    if (rule.weight == 1 && !rule.optional && !rule.nested) {
      result.emplace(rule.pattern, !rule.omitted);
      continue;
    }
    Dictionary details;
    if (rule.nested) details.emplace("nested", true);
    if (rule.omitted) details.emplace("omit", true);
    if (rule.optional) details.emplace("optional", true);
    if (rule.weight != 1) details.emplace("weight", rule.weight);
    result.emplace(rule.pattern, std::move(details));
  }
  return result;
}

Result<std::vector<ResourceRule>> parseResourceRules(const Value& value) {
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary) return failure("resource rules are no dictionary");
  std::vector<ResourceRule> rules;
  for (const auto& [pattern, entry] : *dictionary) {
    auto rule = parseRule(pattern, entry);
    if (!rule) return rule.error();
    rules.push_back(std::move(*rule));
  }
  return rules;
}

}  // namespace toolchain
