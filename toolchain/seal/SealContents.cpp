#include "toolchain/seal/SealContents.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include <unistd.h>

#include "foundation/base/Path.h"
#include "foundation/base/Text.h"
#include "foundation/file/DirectoryWalk.h"
#include "foundation/host/FileOpening.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

namespace fs = std::filesystem;
using foundation::DirectoryEntry;
using Kind = DirectoryEntry::Kind;

Result<std::string> linkTarget(const fs::path& link) {
  const auto folder = foundation::openFolder(link.parent_path(), foundation::Links::refused);
  std::string target(PATH_MAX, '\0');
  const ssize_t size =
      folder ? ::readlinkat(folder.get(), link.filename().c_str(), target.data(), target.size())
             : -1;
  if (size < 0) return foundation::fileError(errno, "read link", link);
  target.resize(static_cast<std::size_t>(size));
  return target;
}

}  // namespace

/// Collects the entries of one bundle and makes the seal of them.
class SealContents::Collector {
 public:
  Collector(const CodeBundle& bundle, const SealOptions& options, RuleMatcher rules,
            RuleMatcher rules2)
      : bundle_(bundle),
        options_(options),
        rules_(std::move(rules)),
        rules2_(std::move(rules2)),
        executable_(bundle.relativeExecutable()),
        hasNestedRules_(std::any_of(options.rules.rules2.begin(), options.rules.rules2.end(),
                                    [](const ResourceRule& rule) { return rule.nested; })) {}

  Result<> collect() {
    const auto takeSealed = [&](const DirectoryEntry& entry, int) -> Result<bool> {
      if (isAlwaysExcluded(entry)) return false;
      if (options_.ignore && options_.ignore(absolute(entry.path))) return false;
      return take(entry);
    };
    auto walked = foundation::walkDirectory(bundle_.base, foundation::Links::refused, takeSealed);
    if (!walked) return walked;
    std::sort(files_.begin(), files_.end());
    std::sort(nestedFiles_.begin(), nestedFiles_.end());
    return {};
  }

  [[nodiscard]] std::vector<std::string> absoluteFiles() const { return absolute(files_); }
  [[nodiscard]] std::vector<std::string> absoluteCode() const { return absolute(nestedFiles_); }

  Result<ResourceSeal> seal(FileHasher& hasher) const {
    ResourceSeal result;
    result.rules = options_.rules;
    const auto digests = hasher.digests(absoluteFiles());
    if (!digests) return digests.error();
    for (std::size_t i = 0; i < files_.size(); ++i) sealFile(files_[i], (*digests)[i], result);
    for (const std::string& path : links_) {
      if (const auto sealed = sealLink(path, result); !sealed) return sealed.error();
    }
    for (const auto* nested : {&nestedBundles_, &nestedFiles_}) {
      for (const std::string& path : *nested) {
        if (const auto sealed = sealNested(path, result); !sealed) return sealed.error();
      }
    }
    return result;
  }

 private:
  [[nodiscard]] std::string absolute(const std::string& path) const {
    return bundle_.base.native() + '/' + path;
  }
  [[nodiscard]] std::vector<std::string> absolute(const std::vector<std::string>& paths) const {
    std::vector<std::string> result;
    result.reserve(paths.size());
    for (const std::string& path : paths) result.push_back(absolute(path));
    return result;
  }

  /// What is never sealed, whatever the rules say: executable and seal, a notarisation ticket, the
  /// receipt of a store. Code has no business in the last two.
  [[nodiscard]] bool isAlwaysExcluded(const DirectoryEntry& entry) const {
    if (entry.path == executable_) return true;
    if (entry.kind == Kind::folder) return entry.path == "_CodeSignature";
    if (entry.path != "CodeResources" && !entry.path.starts_with("_MASReceipt/")) return false;
    return entry.kind != Kind::file || !beginsLikeMachO(absolute(entry.path));
  }

  /// Files one entry; true for a folder that is to be entered.
  Result<bool> take(const DirectoryEntry& entry) {
    if (entry.kind == Kind::folder) {
      if (!isNestedBundle(entry.path)) return true;
      nestedBundles_.push_back(entry.path);
      return false;
    }
    const bool isLink = entry.kind == Kind::link;
    if (!foundation::isUTF8(entry.path)) {
      return failure("the name " + absolute(entry.path) + " is not UTF-8");
    }
    if (entry.kind == Kind::other ||
        (isLink && foundation::lastPathComponent(entry.path) == ".DS_Store")) {
      return failure("unsupported resource found (something not a directory, file or symlink): " +
                     absolute(entry.path));
    }
    if (!isLink && isNestedFile(entry.path)) {
      nestedFiles_.push_back(entry.path);
    } else {
      (isLink ? links_ : files_).push_back(entry.path);
    }
    return false;
  }

  [[nodiscard]] bool isUnderNestedRule(const std::string& path) const {
    if (!hasNestedRules_) return false;
    const ResourceRule* rule = rules2_.match(path);
    return rule && rule->nested && !rule->omitted;
  }
  [[nodiscard]] bool isNestedBundle(const std::string& path) const {
    return !foundation::pathExtension(path).empty() && isUnderNestedRule(path) &&
           isCodeBundle(absolute(path));
  }
  [[nodiscard]] bool isNestedFile(const std::string& path) const {
    return isUnderNestedRule(path) && isLooseCode(absolute(path));
  }

  static bool isSealedBy(const ResourceRule* rule) { return rule && !rule->omitted; }

  void sealFile(const std::string& path, const FileDigests& digests, ResourceSeal& seal) const {
    const ResourceRule* const rule = rules_.match(path);
    const ResourceRule* const rule2 = rules2_.match(path);
    if (digests.looksLikeMachO && isSealedBy(options_.rules.rules2.empty() ? rule : rule2)) {
      seal.machOFiles.push_back(path);
    }
    if (isSealedBy(rule)) {
      SealedItem item;
      item.sha1 = digests.sha1;
      item.optional = rule->optional;
      seal.files.emplace_hint(seal.files.end(), path, std::move(item));
    }
    if (isSealedBy(rule2)) {
      SealedItem item;
      if (options_.sha1InFiles2) item.sha1 = digests.sha1;
      item.sha256 = digests.sha256;
      item.optional = rule2->optional;
      seal.files2.emplace_hint(seal.files2.end(), path, std::move(item));
    }
  }

  Result<> sealLink(const std::string& path, ResourceSeal& seal) const {
    const ResourceRule* rule = rules2_.match(path);
    if (!rule || rule->omitted) return {};
    SealedItem item;
    const auto target = linkTarget(absolute(path));
    if (!target) return target.error();
    item.linkTarget = *target;
    item.optional = rule->optional;
    seal.files2.emplace(path, std::move(item));
    return {};
  }

  Result<> sealNested(const std::string& path, ResourceSeal& seal) const {
    const auto identity = nestedIdentity(absolute(path));
    if (!identity) return identity.error();
    SealedItem item;
    item.cdHash = identity->cdHash;
    item.requirement = identity->requirement;
    seal.files2.emplace(path, std::move(item));
    return {};
  }

  CodeBundle bundle_;
  SealOptions options_;
  RuleMatcher rules_;
  RuleMatcher rules2_;
  std::string executable_;
  bool hasNestedRules_;
  std::vector<std::string> files_;
  std::vector<std::string> links_;
  std::vector<std::string> nestedBundles_;
  std::vector<std::string> nestedFiles_;
};

SealContents::SealContents(std::unique_ptr<Collector> collector)
    : collector_(std::move(collector)) {}
SealContents::SealContents(SealContents&&) noexcept = default;
SealContents::~SealContents() = default;

Result<SealContents> SealContents::collect(const CodeBundle& bundle, const SealOptions& options) {
  auto rules = RuleMatcher::compile(options.rules.rules);
  if (!rules) return rules.error();
  auto rules2 = RuleMatcher::compile(options.rules.rules2);
  if (!rules2) return rules2.error();
  auto collector =
      std::make_unique<Collector>(bundle, options, std::move(*rules), std::move(*rules2));
  if (const auto collected = collector->collect(); !collected) return collected.error();
  return SealContents(std::move(collector));
}

std::vector<std::string> SealContents::files() const { return collector_->absoluteFiles(); }

std::vector<std::string> SealContents::codeByHash() const { return collector_->absoluteCode(); }

Result<ResourceSeal> SealContents::seal(FileHasher& hasher) const {
  return collector_->seal(hasher);
}

Result<ResourceSeal> makeResourceSeal(const CodeBundle& bundle, const SealOptions& options,
                                      FileHasher& hasher) {
  const auto contents = SealContents::collect(bundle, options);
  if (!contents) return contents.error();
  return contents->seal(hasher);
}

}  // namespace toolchain
