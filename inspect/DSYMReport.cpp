#include <map>

#include "inspect/Commands.h"
#include "inspect/MachOReport.h"
#include "macho/QVTdSYM.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

Value uuidsOf(const QVTdSYM& symbols) {
  foundation::Array uuids;
  symbols.enumerateUUIDs([&](const auto& uuid, const auto& architectureName) {
    uuids.push_back(Dictionary{{"uuid", orNull(uuid)}, {"architectureName", architectureName}});
  });
  return uuids;
}

bool holds(const Value& uuids, const std::optional<std::string>& uuid) {
  for (const auto& entry : *uuids.array()) {
    if (foundation::isEqual(textAt(entry, "uuid"), uuid)) return true;
  }
  return false;
}

/// Which slices of the binary have their symbols among `uuids`.
foundation::Array matches(const QVTMachOBinary& binary, const Value& uuids) {
  foundation::Array result;
  for (const auto& slice : binary.slices()) {
    result.push_back(Dictionary{{"architectureName", slice->architectureName()},
                                {"uuid", orNull(slice->uuid())},
                                {"hasSymbols", holds(uuids, slice->uuid())}});
  }
  return result;
}

bool anyIsMissing(const foundation::Array& slices) {
  for (const auto& slice : slices) {
    if (!*slice.find("hasSymbols")->boolean()) return true;
  }
  return false;
}

void show(const Value& document, TextOutput& text) {
  text.fields(fieldsOf(
      document, {"bundleIdentifier", "bundleVersion", "shortBundleVersion", "executablePath"}));
  std::vector<TextOutput::Row> rows;
  for (const auto& entry : entriesAt(document, "uuids")) {
    rows.push_back(
        {textAt(entry, "architectureName").value_or("-"), textAt(entry, "uuid").value_or("-")});
  }
  text.table({"architecture", "uuid"}, rows);
  for (const auto& slice : entriesAt(document, "match")) {
    const bool found = *slice.find("hasSymbols")->boolean();
    text.line(textAt(slice, "architectureName").value_or("-") + " " +
                  textAt(slice, "uuid").value_or("without UUID") +
                  (found ? ": symbols are here" : ": no symbols here"),
              found ? TextOutput::Tone::good : TextOutput::Tone::bad);
  }
}

}  // namespace

foundation::Result<Report> reportDSYM(const Arguments& arguments) {
  const std::string& path = arguments.operands()[0];
  const auto symbols = QVTdSYM::dSYMWithURL(foundation::URL::fileURLWithPath(path));
  if (!symbols) {
    return unreadable(path, "no symbol bundle with a file in Contents/Resources/DWARF");
  }
  Dictionary document{{"bundleIdentifier", orNull(symbols->bundleIdentifier())},
                      {"bundleVersion", orNull(symbols->bundleVersion())},
                      {"shortBundleVersion", orNull(symbols->shortBundleVersion())},
                      {"executablePath", orNull(symbols->executablePath())},
                      {"uuids", uuidsOf(*symbols)}};
  Report report;
  if (const auto other = arguments.value("--match")) {
    const auto binary = openBinary(*other);
    if (!binary) return binary.error();
    auto slices = matches(**binary, document.at("uuids"));
    report.status = anyIsMissing(slices) ? 1 : 0;
    document["match"] = std::move(slices);
  }
  report.document = std::move(document);
  report.showText = [shown = report.document](TextOutput& text) { show(shown, text); };
  return report;
}

}  // namespace inspect
