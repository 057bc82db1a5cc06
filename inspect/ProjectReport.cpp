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

/// Builds the nested tree from entries in depth-first order.
class TreeBuilder {
 public:
  TreeBuilder(const QVTIDEProject& project, const Dictionary* environment)
      : project_(project), environment_(environment) {}

  void add(const QVTIDESourceTreeObject& object, int depth) {
    closeTo(static_cast<std::size_t>(depth));
    open_.push_back(describe(object));
  }
  foundation::Array take() {
    closeTo(0);
    return std::move(roots_);
  }

 private:
  Dictionary describe(const QVTIDESourceTreeObject& object) const {
    const bool isGroup = dynamic_cast<const QVTIDEGroup*>(&object) != nullptr;
    return {{"objectId", object.objectId()},
            {"kind", isGroup ? "group" : "file"},
            {"name", orNull(object.name())},
            {"path", orNull(object.path())},
            {"sourceTree", orNull(object.sourceTree())},
            {"absolutePath",
             orNull(object.absolutePathWithBuildEnvironmentForProject(environment_, project_))},
            {"children", isGroup ? Value(foundation::Array()) : Value()}};
  }
  /// Moves finished entries into their parents until `depth` are open.
  void closeTo(std::size_t depth) {
    while (open_.size() > depth) {
      Value done = std::move(open_.back());
      open_.pop_back();
      // Only groups have entries below them, and a list of children.
      auto* const siblings = open_.empty() ? &roots_ : open_.back().at("children").array();
      if (siblings) siblings->push_back(std::move(done));
    }
  }

  const QVTIDEProject& project_;
  const Dictionary* environment_;
  std::vector<Dictionary> open_;
  foundation::Array roots_;
};

Value describeFile(const QVTIDEFile& file) {
  return Dictionary{
      {"objectId", file.objectId()}, {"name", orNull(file.name())}, {"path", orNull(file.path())}};
}

Value describeTarget(const QVTIDETarget& target) {
  Value phases;
  if (target.buildPhases()) {
    foundation::Array list;
    for (const auto& phase : *target.buildPhases()) {
      foundation::Array files;
      for (const auto& file : phase->files()) files.push_back(describeFile(*file));
      list.push_back(Dictionary{{"objectId", phase->objectId()},
                                {"type", static_cast<int>(phase->type())},
                                {"files", std::move(files)}});
    }
    phases = std::move(list);
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
  TreeBuilder tree(project, environment);
  if (project.mainGroup()) {
    project.mainGroup()->enumerateTree(
        [&](const auto& object, int depth) { tree.add(object, depth); });
  }
  foundation::Array targets;
  for (const auto& target : project.targets()) targets.push_back(describeTarget(*target));
  return Dictionary{{"projectFile", project.projectFile()},
                    {"filesCount", static_cast<std::uint64_t>(project.filesDictionary().size())},
                    {"targets", std::move(targets)},
                    {"groups", tree.take()}};
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
