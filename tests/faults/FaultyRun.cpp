#include "tests/faults/FaultyRun.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"

namespace test {

namespace fs = std::filesystem;

namespace {

const std::vector<ServiceCall> kWholeRun = {ServiceCall::validate, ServiceCall::notes,
                                            ServiceCall::testers, ServiceCall::upload};

bool contains(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

/// Every file below the folder with its content, in a fixed order.
std::string contentOfTree(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    files[entry.path()] = entry.is_regular_file() ? contentsOf(entry.path()) : "";
  }
  std::string all;
  for (const auto& [name, content] : files) all.append(name).append(1, '\0').append(content);
  return all;
}

/// Names, sizes and sums of the files in the archive. A signature holds the time, so of the
/// executable and the seal over it only the size is told.
std::string contentOfIPA(const fs::path& ipa) {
  std::istringstream lines(outputOf({"unzip", "-v", ipa}));
  std::string content;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string size, method, packed, ratio, date, time, sum, name;
    words >> size >> method >> packed >> ratio >> date >> time >> sum >> name;
    if (!name.starts_with("Payload/")) continue;
    content += name + " " + size + (name.ends_with("/Example") ? "" : " " + sum) + "\n";
  }
  return content;
}

}  // namespace

std::string Fault::text() const {
  return kind + ":" + which + (route == Route::ipa ? " (.ipa)" : " (archive)") +
         (isQuota ? " (quota)" : "");
}

FaultyRun::FaultyRun() {
  const fs::path app = makeApp(place_.files());
  ipa_ = packIPA(app, place_.files() / "Example.ipa");
  products_ = makeArchive(place_.files() / "Example.xcarchive", app);
  std::ofstream(place_.files() / "notes.txt") << "notes";
  originals_ = contentOfTree(place_.files());
  place_.environment()["FAULT_PROGRAM"] = "sendoff";
  place_.environment()["LD_PRELOAD"] = FAULT_SHIM;
}

void FaultyRun::clear() const {
  for (const auto& entry : fs::directory_iterator(place_.temporary())) fs::remove_all(entry);
}

std::string FaultyRun::describeUpload(const StandInService& service) const {
  std::string text;
  for (const FormPart& part : service.form(ServiceCall::upload)) {
    if (part.fileName) {
      const fs::path file = place_.home() / "uploaded.ipa";
      std::ofstream(file, std::ios::binary | std::ios::trunc) << part.value;
      text += contentOfIPA(file);
    } else if (part.name != "distribution[built_at]") {
      text += part.name + " = " + part.value + "\n";
    }
  }
  return text;
}

FaultyRun::Outcome FaultyRun::run(Route route, const std::map<std::string, std::string>& faults) {
  clear();
  const StandInService service({.apiKey = kKey, .buildSecret = kSecret, .opensTheIPA = false});
  const fs::path report = place_.home() / "report";
  fs::remove(report);
  auto environment = place_.environment();
  environment["FAULT_REPORT"] = report;
  environment.insert(faults.begin(), faults.end());
  RunOptions options{
      .command = {kTool, kKey, kSecret, "-debug", "YES", "-notesPath", place_.files() / "notes.txt",
                  "-emails", "a@x.org", "-QuorvantileAPIEndpoint", service.url()},
      .environment = environment,
      .limit = std::chrono::seconds(60)};
  if (route == Route::ipa) {
    options.command.insert(options.command.end(), {"-ipaPath", ipa_});
  } else {
    options.environment["ARCHIVE_PRODUCTS_PATH"] = products_;
  }
  Outcome outcome;
  outcome.result = runProgram(options);
  if (fs::exists(report)) outcome.report = contentsOf(report);
  outcome.calls = service.calls();
  outcome.complaints = service.complaints();
  if (outcome.result.status == 0 && outcome.calls == kWholeRun) {
    outcome.upload = describeUpload(service);
  }
  return outcome;
}

Calls FaultyRun::record(Route route) {
  const Outcome outcome = run(route, {});
  if (outcome.result.status != 0 || outcome.upload.empty()) {
    throw std::runtime_error("a run without a fault failed: " + outcome.result.output +
                             outcome.result.errors);
  }
  rightUpload_[route] = outcome.upload;
  Calls calls;
  std::istringstream lines(outcome.report);
  for (std::string word, kind, which; lines >> word >> kind >> which;) {
    if (word == "site") calls.sites.push_back({.route = route, .kind = kind, .which = which});
    if (word == "count") calls.counts[kind] = std::stol(which);
  }
  return calls;
}

std::vector<std::string> FaultyRun::wrongLeftovers(const Outcome& outcome) const {
  const std::string& output = outcome.result.output;
  // The tool may be unable to remove what it should; then it says so in debug mode.
  const bool couldNotRemove = contains(output, "Unable to remove item at path");
  const bool failedPackaging =
      contains(output, "Unable to package source") || contains(output, "Unexpected error");
  // Whatever the reader of an .ipa has unpacked stays when it cannot read an app in it.
  const bool readNoApp =
      contains(output, "Failed to prepare") &&
      (!contains(output, "Path To App") || std::ranges::count(output, '\n') == 4);
  const bool saidSo = contains(outcome.result.errors, "cannot remove") ||
                      contains(outcome.result.errors, "cannot list") ||
                      contains(outcome.result.errors, "cannot examine");
  std::vector<std::string> wrong;
  for (const std::string& name : place_.leftovers()) {
    const bool isApp = contains(name, ".app");
    if (name.starts_with("com.quorvantile.ipas/") && (failedPackaging || saidSo)) continue;
    // A claim that cannot be removed is removed by a later run.
    if (name.starts_with("com.quorvantile.claims-")) continue;
    if (name.starts_with("Example/") && readNoApp) continue;
    if (couldNotRemove && (isApp || name.ends_with(".ipa"))) continue;
    if (name.starts_with("Example") && !isApp) continue;
    if (name == "com.quorvantile.ipas" || name == "com.quorvantile.mac" ||
        name == "com.quorvantile.mac/apps" || name == "com.quorvantile.mac/distributions") {
      continue;
    }
    const std::string apps = "com.quorvantile.mac/apps/";
    if (name.starts_with(apps) && !contains(name.substr(apps.size()), "/")) continue;
    wrong.push_back("left behind: " + name);
  }
  return wrong;
}

std::vector<std::string> FaultyRun::problemsOf(const Outcome& outcome, Route route) const {
  const RunResult& result = outcome.result;
  std::vector<std::string> problems;
  if (!result.status) {
    problems.push_back("ended by signal " + std::to_string(result.signal));
    return problems;
  }
  if (*result.status == 0) {
    if (outcome.calls != kWholeRun) problems.emplace_back("success without all calls");
    for (const std::string& complaint : outcome.complaints) problems.push_back(complaint);
    if (outcome.upload != rightUpload_.at(route)) {
      problems.push_back("success with a wrong upload:\n" + outcome.upload + "instead of\n" +
                         rightUpload_.at(route));
    }
  } else if (*result.status != 1) {
    problems.push_back("status " + std::to_string(*result.status));
  } else if (std::ranges::count(result.output, '\n') < 2 && !contains(outcome.report, "write")) {
    problems.emplace_back("failed without a word");
  }
  for (std::string& leftover : wrongLeftovers(outcome)) problems.push_back(std::move(leftover));
  if (contentOfTree(place_.files()) != originals_)
    problems.emplace_back("the user's files changed");
  return problems;
}

std::vector<std::string> FaultyRun::check(const Fault& fault, bool& wasMet) {
  const std::string variable = fault.isNumbered ? "FAULT_CALL" : "FAULT_SITE";
  try {
    std::map<std::string, std::string> faults{{variable, fault.kind + ":" + fault.which}};
    if (fault.isQuota) faults["FAULT_QUOTA"] = "1";
    const Outcome outcome = run(fault.route, faults);
    wasMet = contains(outcome.report, "failed ");
    std::vector<std::string> problems = problemsOf(outcome, fault.route);
    for (std::string& problem : problems) {
      problem =
          fault.text() + ": " + problem + "\n" + outcome.result.output + outcome.result.errors;
    }
    return problems;
  } catch (const std::exception& exception) {
    wasMet = true;
    return {fault.text() + ": " + exception.what()};
  }
}

}  // namespace test
