#include "inspect/MachOReport.h"

#include <algorithm>

#include "inspect/Commands.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

Value version(const std::optional<macho::QVTMachOVersion>& value) {
  return orNull(macho::QVTMachOFormatVersion(value ? &*value : nullptr));
}

Value describeSlice(const QVTMachOSlice& slice, const SliceFacts& facts) {
  foundation::Array dylibs;
  for (const auto& dylib : facts.linkedDylibs) {
    dylibs.push_back(Dictionary{{"path", dylib.path}, {"kind", dylib.kind}});
  }
  return Dictionary{{"architectureName", slice.architectureName()},
                    {"uuid", orNull(slice.uuid())},
                    {"minimumOSVersion", version(facts.minimumOSVersion)},
                    {"linkedSDKVersion", version(facts.linkedSDKVersion)},
                    {"linkedDylibs", std::move(dylibs)}};
}

bool everySliceHasUUID(const QVTMachOBinary& binary) {
  return std::ranges::all_of(binary.slices(), [](const auto& s) { return s->uuid().has_value(); });
}

void showDylibs(const Value& slice, TextOutput& text) {
  text.heading(textAt(slice, "architectureName").value_or("") + " links");
  for (const auto& dylib : entriesAt(slice, "linkedDylibs")) {
    const std::string kind = textAt(dylib, "kind").value_or("");
    text.line(textAt(dylib, "path").value_or("") + (kind == "plain" ? "" : " (" + kind + ")"));
  }
}

}  // namespace

Value describeBinary(const Binary& binary) {
  foundation::Array slices;
  for (std::size_t i = 0; i < binary.facts.size(); ++i) {
    slices.push_back(describeSlice(*binary.object->slices()[i], binary.facts[i]));
  }
  const bool identified = everySliceHasUUID(*binary.object);
  return Dictionary{
      {"slices", std::move(slices)},
      {"instanceIdentifier", identified ? Value(binary.object->instanceIdentifier()) : Value()}};
}

void showBinary(const Value& document, const BinaryTextOptions& options, TextOutput& text) {
  std::vector<TextOutput::Row> rows;
  for (const auto& slice : entriesAt(document, "slices")) {
    rows.push_back({textAt(slice, "architectureName").value_or("-"),
                    textAt(slice, "uuid").value_or("-"),
                    textAt(slice, "minimumOSVersion").value_or("-"),
                    textAt(slice, "linkedSDKVersion").value_or("-"),
                    std::to_string(entriesAt(slice, "linkedDylibs").size())});
  }
  text.table({"architecture", "uuid", "min OS", "SDK", "dylibs"}, rows);
  text.fields(fieldsOf(document, {"instanceIdentifier"}));
  if (!options.withDylibs) return;
  for (const auto& slice : entriesAt(document, "slices")) showDylibs(slice, text);
}

foundation::Result<Report> reportMachO(const Arguments& arguments) {
  const auto binary = openBinary(arguments.operands()[0]);
  if (!binary) return binary.error();
  const BinaryTextOptions options{.withDylibs = arguments.has("-v")};
  Value document = describeBinary(*binary);
  return Report{document,
                [document, options](TextOutput& text) { showBinary(document, options, text); }};
}

}  // namespace inspect
