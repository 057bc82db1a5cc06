// Reports about build settings: search paths, argument strings, platform names.

#include "QVTSharedUtils/QVTTask.h"
#include "inspect/Commands.h"
#include "xcode/QVTEnvironment.h"
#include "xcode/QVTPlatform.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

Report listReport(Value document, std::string key) {
  return {std::move(document), [key = std::move(key)](const Value& shown, TextOutput& text) {
            for (const auto& entry : entriesAt(shown, key)) text.line(*entry.string());
          }};
}

}  // namespace

foundation::Result<Report> reportSearchPaths(const Arguments& arguments) {
  const std::string directory = arguments.value("--directory").value_or("");
  const auto paths = QVTEnvironment::parseFrameworkSearchPathsFromStringWorkingDirectory(
      arguments.operands()[0], directory);
  return listReport(Dictionary{{"searchPaths", arrayOf(paths)}}, "searchPaths");
}

foundation::Result<Report> reportArguments(const Arguments& arguments) {
  const auto words = QVTTask::parsedArgumentsFromString(arguments.operands()[0]);
  if (!words) return inputError("the string ends inside a quote or after a lone backslash");
  Dictionary document{{"arguments", arrayOf(*words)}};
  const auto options = arguments.values("--option");
  if (options.empty()) return listReport(std::move(document), "arguments");
  const auto values = QVTTask::argumentsProvidedMatchingValidArgumentsAllowingTrailingSpace(
      foundation::Array(words->begin(), words->end()), options, arguments.has("--glued"));
  document["values"] = values ? arrayOf(*values) : Value();
  return listReport(std::move(document), "values");
}

foundation::Result<Report> reportPlatform(const Arguments& arguments) {
  const std::string& name = arguments.operands()[0];
  const auto ofSDK = QVTPlatform::translatePlatform(name);
  const auto type = QVTPlatform::platformFromString(ofSDK.value_or(name));
  if (type == QVTPlatformType::unknown) {
    return inputError("unknown platform " + name +
                      " (try iphoneos, macosx, appletvos, watchos or ios)");
  }
  return Report{Dictionary{{"name", ofSDK ? Value(name) : Value()},
                           {"identifier", orNull(QVTPlatform::stringFromPlatform(type))},
                           {"displayName", orNull(QVTPlatform::displayStringForPlatformType(type))},
                           {"type", static_cast<std::int64_t>(type)}},
                [](const Value& document, TextOutput& text) {
                  text.fields(fieldsOf(document, {"name", "identifier", "displayName", "type"}));
                }};
}

}  // namespace inspect
