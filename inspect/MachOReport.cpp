#include "inspect/MachOReport.h"

#include <algorithm>

#include "inspect/Commands.h"
#include "macho/QVTMachOBinary.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

Value version(const macho::QVTMachOVersion& value) {
  return orNull(macho::QVTMachOFormatVersion(&value));
}

Value describeSlice(const QVTMachOSlice& slice) {
  return Dictionary{{"architectureName", slice.architectureName()},
                    {"uuid", orNull(slice.uuid())},
                    {"minimumOSVersion", version(slice.minimumOSVersion())},
                    {"linkedSDKVersion", version(slice.linkedSDKVersion())},
                    {"linkedDylibs", arrayOf(slice.linkedDylibs())}};
}

bool everySliceHasUUID(const QVTMachOBinary& binary) {
  return std::ranges::all_of(binary.slices(), [](const auto& s) { return s->uuid().has_value(); });
}

void showDylibs(const Value& slice, TextOutput& text) {
  text.heading(textAt(slice, "architectureName").value_or("") + " links");
  for (const auto& dylib : entriesAt(slice, "linkedDylibs")) text.line(*dylib.string());
}

}  // namespace

Value describeBinary(const QVTMachOBinary& binary) {
  foundation::Array slices;
  for (const auto& slice : binary.slices()) slices.push_back(describeSlice(*slice));
  const bool identified = everySliceHasUUID(binary);
  return Dictionary{
      {"slices", std::move(slices)},
      {"instanceIdentifier", identified ? Value(binary.instanceIdentifier()) : Value()}};
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
  const std::string& path = arguments.operands()[0];
  const auto binary = QVTMachOBinary::MachOBinaryWithPath(path);
  if (!binary) return unreadable(path, "no regular file, or shorter than any Mach-O file");
  const BinaryTextOptions options{.withDylibs = arguments.has("-v")};
  Value document = describeBinary(*binary);
  return Report{document,
                [document, options](TextOutput& text) { showBinary(document, options, text); }};
}

}  // namespace inspect
