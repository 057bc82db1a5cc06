#include <algorithm>

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

bool hasSymbols(const Value& slice) { return *slice.find("hasSymbols")->boolean(); }

foundation::Array matches(const QVTMachOBinary& binary, const Value& uuids) {
  return listOf(binary.slices(), [&](const auto& slice) {
    const bool found = std::ranges::any_of(*uuids.array(), [&](const Value& entry) {
      return foundation::isEqual(textAt(entry, "uuid"), slice->uuid());
    });
    return Dictionary{{"architectureName", slice->architectureName()},
                      {"uuid", orNull(slice->uuid())},
                      {"hasSymbols", found}};
  });
}

void show(const Value& document, TextOutput& text) {
  text.fields(fieldsOf(
      document, {"bundleIdentifier", "bundleVersion", "shortBundleVersion", "executablePath"}));
  text.table({"architecture", "uuid"},
             rowsOf(entriesAt(document, "uuids"), {"architectureName", "uuid"}));
  for (const auto& slice : entriesAt(document, "match")) {
    const bool found = hasSymbols(slice);
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
    return unreadable(path, "not a symbol bundle with a file in Contents/Resources/DWARF");
  }
  Dictionary document{{"bundleIdentifier", orNull(symbols->bundleIdentifier())},
                      {"bundleVersion", orNull(symbols->bundleVersion())},
                      {"shortBundleVersion", orNull(symbols->shortBundleVersion())},
                      {"executablePath", orNull(symbols->executablePath())},
                      {"uuids", uuidsOf(*symbols)}};
  int status = 0;
  if (const auto other = arguments.value("--match")) {
    const auto binary = openBinary(*other);
    if (!binary) return binary.error();
    auto slices = matches(**binary, document.at("uuids"));
    status = std::ranges::all_of(slices, hasSymbols) ? 0 : 1;
    document["match"] = std::move(slices);
  }
  return Report{std::move(document), show, status};
}

}  // namespace inspect
