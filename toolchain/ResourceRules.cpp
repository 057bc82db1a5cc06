#include <algorithm>
#include <array>

#include <regex.h>

#include "toolchain/ResourceSeal.h"

namespace toolchain {

namespace {

constexpr double kOptionalWeight = 1000;
constexpr std::size_t kLongestPattern = 1024;
constexpr std::size_t kMostRules = 1000;
constexpr int kMostDoublings = 4;

using Rules = std::vector<ResourceRule>;

ResourceRule optionalRule(std::string pattern) {
  return {.pattern = std::move(pattern), .weight = kOptionalWeight, .optional = true};
}

ResourceRule omittingRule(std::string pattern, double weight) {
  return {.pattern = std::move(pattern), .weight = weight, .omitted = true};
}

ResourceRule weighted(std::string pattern, double weight) {
  return {.pattern = std::move(pattern), .weight = weight};
}

ResourceRule nestedRule(std::string pattern) {
  return {.pattern = std::move(pattern), .weight = 10, .nested = true};
}

Rules localizationRules(const std::string& prefix) {
  return {optionalRule("^" + prefix + ".*\\.lproj/"),
          omittingRule("^" + prefix + ".*\\.lproj/locversion.plist$", 1100),
          weighted("^" + prefix + "Base\\.lproj/", 1010)};
}

void add(Rules& rules, Rules more) { rules.insert(rules.end(), more.begin(), more.end()); }

constexpr std::string_view kDebugSymbols = ".*\\.dSYM($|/)";
constexpr std::string_view kFinderFiles = "^(.*/)?\\.DS_Store$";
constexpr std::string_view kCodeFolders =
    "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
    "Library/(Automator|Spotlight|LoginItems))/";

Rules firstGeneration(BundleShape shape) {
  const bool isFlat = shape == BundleShape::flat;
  Rules rules = {weighted(isFlat ? "^.*" : "^Resources/", 1), weighted("^version.plist$", 1)};
  add(rules, localizationRules(isFlat ? "" : "Resources/"));
  return rules;
}

Rules secondGeneration(BundleShape shape) {
  const bool isFlat = shape == BundleShape::flat;
  Rules rules = {weighted(std::string(kDebugSymbols), 11),
                 omittingRule(std::string(kFinderFiles), 2000),
                 weighted("^.*", 1),
                 omittingRule("^Info\\.plist$", 20),
                 omittingRule("^PkgInfo$", 20),
                 weighted("^embedded\\.provisionprofile$", 20),
                 weighted("^version\\.plist$", 20)};
  add(rules, localizationRules(isFlat ? "" : "Resources/"));
  if (!isFlat) {
    add(rules, {nestedRule("^[^/]+$"), nestedRule(std::string(kCodeFolders)),
                weighted("^Resources/", 20)});
  }
  return rules;
}

/// A pattern of literal characters, "." and ".*", perhaps anchored: what most rules are made of.
/// Matching takes no more than one pass, where a general expression takes many.
class PlainPattern {
 public:
  /// Absent for a pattern that needs a general expression.
  static std::optional<PlainPattern> from(std::string_view text) {
    PlainPattern result;
    if (text.starts_with('^')) {
      result.atStart_ = true;
      text.remove_prefix(1);
    }
    result.pieces_.emplace_back();
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      if (c == '$' && i + 1 == text.size()) {
        result.atEnd_ = true;
      } else if (c == '.' && i + 1 < text.size() && text[i + 1] == '*') {
        result.pieces_.emplace_back();
        ++i;
      } else if (c == '.') {
        result.pieces_.back().push_back(kAny);
      } else if (c == '\\' && i + 1 < text.size() && isEscapable(text[i + 1])) {
        result.pieces_.back().push_back(static_cast<unsigned char>(text[++i]));
      } else if (std::string_view("\\^$*+?()[]{}|").find(c) == std::string_view::npos) {
        result.pieces_.back().push_back(static_cast<unsigned char>(c));
      } else {
        return std::nullopt;
      }
    }
    return result;
  }

  [[nodiscard]] bool matches(std::string_view text) const {
    std::size_t at = 0;
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      const Piece& piece = pieces_[i];
      const bool isFixed = i == 0 && atStart_;
      if (atEnd_ && i + 1 == pieces_.size()) {
        if (text.size() - at < piece.size()) return false;
        const std::size_t last = text.size() - piece.size();
        return (!isFixed || last == 0) && fits(piece, text, last);
      }
      const auto found = isFixed ? fixed(piece, text) : search(piece, text, at);
      if (!found) return false;
      at = *found + piece.size();
    }
    return true;
  }

 private:
  /// A byte, or `kAny`.
  using Piece = std::vector<int>;
  static constexpr int kAny = -1;

  static bool isEscapable(char c) {
    return std::string_view("\\^$*+?()[]{}|./-").find(c) != std::string_view::npos;
  }
  static bool fits(const Piece& piece, std::string_view text, std::size_t at) {
    for (std::size_t i = 0; i < piece.size(); ++i) {
      if (piece[i] != kAny && piece[i] != static_cast<unsigned char>(text[at + i])) return false;
    }
    return true;
  }
  static std::optional<std::size_t> fixed(const Piece& piece, std::string_view text) {
    if (piece.size() > text.size() || !fits(piece, text, 0)) return std::nullopt;
    return 0;
  }
  static std::optional<std::size_t> search(const Piece& piece, std::string_view text,
                                           std::size_t from) {
    for (std::size_t at = from; text.size() - at >= piece.size(); ++at) {
      if (fits(piece, text, at)) return at;
    }
    return std::nullopt;
  }

  bool atStart_ = false;
  bool atEnd_ = false;
  std::vector<Piece> pieces_;
};

/// The default patterns that are no plain ones, as several that are.
std::vector<std::string> alternativesOf(std::string_view pattern) {
  if (pattern == kDebugSymbols) return {"\\.dSYM$", "\\.dSYM/"};
  if (pattern == kFinderFiles) return {"^\\.DS_Store$", "/\\.DS_Store$"};
  if (pattern != kCodeFolders) return {std::string(pattern)};
  std::vector<std::string> folders;
  for (const char* name :
       {"Frameworks", "SharedFrameworks", "PlugIns", "Plug-ins", "XPCServices", "Helpers", "MacOS",
        "Library/Automator", "Library/Spotlight", "Library/LoginItems"}) {
    folders.push_back("^" + std::string(name) + "/");
  }
  return folders;
}

struct RegexRelease {
  void operator()(regex_t* regex) const {
    ::regfree(regex);
    delete regex;
  }
};
using Regex = std::unique_ptr<regex_t, RegexRelease>;

/// Counted repetition and back references can take any time and memory; no seal needs them. Each
/// "+" doubles what it stands behind, so one that stands behind a group or another repetition
/// doubles a pattern that may have been doubled before.
bool isCheap(std::string_view pattern) {
  if (pattern.size() > kLongestPattern) return false;
  int doublings = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '{') return false;
    if (pattern[i] == '+' && i > 0 &&
        std::string_view(")+*?").find(pattern[i - 1]) != std::string_view::npos) {
      if (++doublings > kMostDoublings) return false;
    }
    if (pattern[i] != '\\' || i + 1 == pattern.size()) continue;
    ++i;
    if (pattern[i] >= '0' && pattern[i] <= '9') return false;
  }
  return true;
}

Result<Regex> compileRegex(const std::string& pattern) {
  if (!isCheap(pattern)) {
    return failure("resource rule \"" + pattern.substr(0, 80) + "\" is too complex");
  }
  auto raw = std::make_unique<regex_t>();
  const int code = ::regcomp(raw.get(), pattern.c_str(), REG_EXTENDED | REG_NOSUB);
  if (code == 0) return Regex(raw.release());
  std::array<char, 128> reason{};
  ::regerror(code, raw.get(), reason.data(), reason.size());
  return failure("resource rule \"" + pattern + "\": " + reason.data());
}

/// One rule with its ready-made test.
struct CompiledRule {
  ResourceRule rule;
  std::vector<PlainPattern> plain;
  Regex regex;

  [[nodiscard]] bool matches(const std::string& path) const {
    if (regex) return ::regexec(regex.get(), path.c_str(), 0, nullptr, 0) == 0;
    return std::any_of(plain.begin(), plain.end(),
                       [&](const PlainPattern& pattern) { return pattern.matches(path); });
  }
};

Result<CompiledRule> compileRule(const ResourceRule& rule) {
  CompiledRule compiled{rule, {}, nullptr};
  for (const std::string& alternative : alternativesOf(rule.pattern)) {
    auto plain = PlainPattern::from(alternative);
    if (!plain) {
      auto regex = compileRegex(rule.pattern);
      if (!regex) return regex.error();
      compiled.regex = std::move(*regex);
      return compiled;
    }
    compiled.plain.push_back(std::move(*plain));
  }
  return compiled;
}

}  // namespace

ResourceRules defaultResourceRules(BundleShape shape) {
  ResourceRules result{firstGeneration(shape), secondGeneration(shape)};
  const auto byPattern = [](const ResourceRule& a, const ResourceRule& b) {
    return a.pattern < b.pattern;
  };
  std::sort(result.rules.begin(), result.rules.end(), byPattern);
  std::sort(result.rules2.begin(), result.rules2.end(), byPattern);
  return result;
}

struct RuleMatcher::Compiled {
  /// Heaviest first, an omitting one before others of its weight: the first match wins.
  std::vector<CompiledRule> rules;
};

RuleMatcher::RuleMatcher(std::unique_ptr<Compiled> compiled) : compiled_(std::move(compiled)) {}
RuleMatcher::RuleMatcher(RuleMatcher&&) noexcept = default;
RuleMatcher& RuleMatcher::operator=(RuleMatcher&&) noexcept = default;
RuleMatcher::~RuleMatcher() = default;

Result<RuleMatcher> RuleMatcher::compile(const std::vector<ResourceRule>& rules) {
  if (rules.size() > kMostRules) {
    return failure(std::to_string(rules.size()) + " resource rules are too many");
  }
  auto compiled = std::make_unique<Compiled>();
  for (const ResourceRule& rule : rules) {
    auto one = compileRule(rule);
    if (!one) return one.error();
    compiled->rules.push_back(std::move(*one));
  }
  std::stable_sort(compiled->rules.begin(), compiled->rules.end(),
                   [](const CompiledRule& a, const CompiledRule& b) {
                     if (a.rule.weight != b.rule.weight) return a.rule.weight > b.rule.weight;
                     return a.rule.omitted && !b.rule.omitted;
                   });
  return RuleMatcher(std::move(compiled));
}

const ResourceRule* RuleMatcher::match(const std::string& relativePath) const {
  for (const CompiledRule& rule : compiled_->rules) {
    if (rule.matches(relativePath)) return &rule.rule;
  }
  return nullptr;
}

}  // namespace toolchain
