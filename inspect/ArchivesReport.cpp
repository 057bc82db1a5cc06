#include <algorithm>

#include "inspect/AppSource.h"
#include "inspect/ArchivesWatch.h"
#include "inspect/Commands.h"
#include "xcode/QVTXcodeArchive.h"
#include "xcode/QVTXcodeArchiveMonitor.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

using ArchivePointer = std::shared_ptr<QVTXcodeArchive>;

/// Archives without a creation date come last; equal dates are ordered by path.
bool isNewer(const ArchivePointer& a, const ArchivePointer& b) {
  if (a->creationDate() != b->creationDate()) return a->creationDate() > b->creationDate();
  return a->path() < b->path();
}

std::vector<ArchivePointer> wantedArchives(const std::optional<std::string>& latest) {
  if (latest) {
    const auto archive = QVTXcodeArchiveMonitor::latestArchiveMatchingBundleIdentifier(*latest);
    return archive ? std::vector<ArchivePointer>{archive} : std::vector<ArchivePointer>{};
  }
  const auto all = QVTXcodeArchiveMonitor::allArchives();
  std::vector<ArchivePointer> sorted(all.begin(), all.end());
  std::ranges::sort(sorted, isNewer);
  return sorted;
}

void showArchives(const Value& document, TextOutput& text) {
  std::vector<TextOutput::Row> rows;
  for (const auto& archive : entriesAt(document, "archives")) {
    auto& row = rows.emplace_back(
        rowOf(archive, {"creationDate", "bundleIdentifier", "displayVersion", "path"}));
    row[2] += " (" + textAt(archive, "buildVersion").value_or("-") + ")";
  }
  if (rows.empty()) {
    text.line("no archive in " + textAt(document, "location").value_or("any known location"));
  } else {
    text.table({"created", "bundle identifier", "version", "path"}, rows);
  }
}

}  // namespace

foundation::Result<Report> reportArchives(const Arguments& arguments) {
  const auto location = QVTXcodeArchive::currentArchiveLocation();
  if (arguments.has("--watch")) {
    if (arguments.has("--latest")) return usageError("--watch and --latest cannot be combined");
    if (!location) return inputError("the archives location is unknown");
    watchArchives(*location, {.asJSON = arguments.has("--json")});
  }
  const auto latest = arguments.value("--latest");
  const auto archives = wantedArchives(latest);
  if (latest && archives.empty()) return inputError("no archive of " + *latest);
  auto entries = listOf(archives, [](const auto& archive) { return describeIdentity(*archive); });
  return Report{Dictionary{{"location", orNull(location)}, {"archives", std::move(entries)}},
                showArchives};
}

}  // namespace inspect
