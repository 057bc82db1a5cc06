#include "QVTIDEFoundation/QVTIDEProject.h"
#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"
#include "inspect/Commands.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

/// "K=V" pairs as build settings.
foundation::Result<Dictionary> environmentOf(const std::vector<std::string>& pairs) {
  Dictionary environment;
  for (const auto& pair : pairs) {
    const auto equals = pair.find('=');
    if (equals == std::string::npos || equals == 0)
      return usageError("--env takes NAME=VALUE, not " + pair);
    environment[pair.substr(0, equals)] = pair.substr(equals + 1);
  }
  return environment;
}

Value describeEntry(const QVTIDESourceTreeObject& object, const QVTIDEProject& project,
                    const Dictionary* environment) {
  const bool isGroup = dynamic_cast<const QVTIDEGroup*>(&object) != nullptr;
  return Dictionary{{"objectId", object.objectId()},
                    {"kind", isGroup ? "group" : "file"},
                    {"name", orNull(object.name())},
                    {"path", orNull(object.path())},
                    {"sourceTree", orNull(object.sourceTree())},
                    {"absolutePath", orNull(object.absolutePathWithBuildEnvironmentForProject(
                                         environment, project))},
                    {"children", isGroup ? Value(foundation::Array()) : Value()}};
}

foundation::Array describeGroups(const QVTIDEProject& project, const Dictionary* environment) {
  foundation::Array roots;
  if (!project.mainGroup()) return roots;
  // At each depth, the list of the group that was entered last; null below a file.
  std::vector<foundation::Array*> lists{&roots};
  project.mainGroup()->enumerateTree([&](const auto& object, int depth) {
    lists.resize(static_cast<std::size_t>(depth) + 1);
    Value& entry = lists.back()->emplace_back(describeEntry(object, project, environment));
    lists.push_back(entry.dictionary()->at("children").array());
  });
  return roots;
}

Value describeFile(const QVTIDEFile& file) {
  return Dictionary{
      {"objectId", file.objectId()}, {"name", orNull(file.name())}, {"path", orNull(file.path())}};
}

Value describePhase(const QVTIDEBuildPhase& phase) {
  return Dictionary{
      {"objectId", phase.objectId()},
      {"type", static_cast<int>(phase.type())},
      {"files", listOf(phase.files(), [](const auto& file) { return describeFile(*file); })}};
}

Value describeTarget(const QVTIDETarget& target) {
  Value phases;
  if (const auto& list = target.buildPhases()) {
    phases = listOf(*list, [](const auto& phase) { return describePhase(*phase); });
  }
  return Dictionary{
      {"objectId", target.objectId()},
      {"name", orNull(target.name())},
      {"productName", orNull(target.productName())},
      {"productType", orNull(target.productType())},
      {"targetAppType", static_cast<int>(target.targetAppType())},
      {"settingBundle", target.settingBundle() ? describeFile(*target.settingBundle()) : Value()},
      {"buildPhases", std::move(phases)}};
}

Value describeProject(const QVTIDEProject& project, const Dictionary* environment) {
  return Dictionary{
      {"projectFile", project.projectFile()},
      {"filesCount", static_cast<std::uint64_t>(project.filesDictionary().size())},
      {"targets", listOf(project.targets(), [](const auto& one) { return describeTarget(*one); })},
      {"groups", describeGroups(project, environment)}};
}

void showTree(const foundation::Array& entries, std::size_t depth, TextOutput& text) {
  for (const auto& entry : entries) {
    const auto path = textAt(entry, "path");
    std::string line =
        std::string(2 * depth, ' ') + textAt(entry, "name").value_or(path.value_or("-"));
    if (const auto absolute = textAt(entry, "absolutePath")) line += "  " + *absolute;
    text.line(line);
    showTree(entriesAt(entry, "children"), depth + 1, text);
  }
}

std::string appTypeName(const Value& target) {
  const std::string number = textAt(target, "targetAppType").value_or("2");
  return number == "0" ? "Mac" : number == "1" ? "iOS" : "-";
}

void showProject(const Value& document, TextOutput& text) {
  text.fields(fieldsOf(document, {"projectFile", "filesCount"}));
  text.heading("targets");
  std::vector<TextOutput::Row> rows;
  for (const auto& target : entriesAt(document, "targets")) {
    const Value* settings = target.find("settingBundle");
    rows.push_back({textAt(target, "name").value_or("-"),
                    textAt(target, "productType").value_or("-"), appTypeName(target),
                    std::to_string(entriesAt(target, "buildPhases").size()),
                    settings->dictionary() ? textAt(*settings, "path").value_or("-") : "-"});
  }
  text.table({"name", "product type", "app", "phases", "settings bundle"}, rows);
  text.heading("groups");
  showTree(entriesAt(document, "groups"), 0, text);
}

}  // namespace

foundation::Result<Report> reportProject(const Arguments& arguments) {
  const auto pairs = arguments.values("--env");
  const auto environment = environmentOf(pairs);
  if (!environment) return environment.error();
  std::string path = arguments.operands()[0];
  if (foundation::FileManager::isDirectoryAtPath(path)) {
    path = foundation::appendingPathComponent(path, "project.pbxproj");
  }
  const auto project = QVTIDEProject::initWithProjectPath(path);
  if (!project) return unreadable(path, "not UTF-8 text, or not a property list of a project");
  return Report{describeProject(*project, pairs.empty() ? nullptr : &*environment), showProject};
}

}  // namespace inspect
