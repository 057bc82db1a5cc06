#include "inspect/MachOReport.h"

#include <algorithm>
#include <array>

#include "inspect/Arguments.h"
#include "inspect/Commands.h"

namespace inspect {

using foundation::Dictionary;
using foundation::Value;

namespace {

/// Linkers write 0 for a version that they do not know.
Value version(const macho::QVTMachOVersion& value) {
  if (value == macho::QVTMachOVersion{}) return {};
  return orNull(macho::QVTMachOFormatVersion(&value));
}

/// In the order of `macho::DylibKind`.
constexpr std::array<std::string_view, 5> kKindNames{"plain", "weak", "re-exported", "upward",
                                                     "lazy"};

Value describeSlice(const QVTMachOSlice& slice) {
  const macho::SliceContents& contents = slice.contents();
  const auto& stated = contents.buildVersion ? contents.buildVersion : contents.versionMin;
  const auto versions = stated.value_or(macho::TargetVersions{});
  auto dylibs = listOf(contents.dylibs, [](const macho::LinkedDylib& dylib) {
    return Dictionary{{"path", dylib.path},
                      {"kind", kKindNames[static_cast<std::size_t>(dylib.kind)]}};
  });
  return Dictionary{{"architectureName", slice.architectureName()},
                    {"uuid", orNull(slice.uuid())},
                    {"minimumOSVersion", version(versions.minimumOS)},
                    {"linkedSDKVersion", version(versions.sdk)},
                    {"linkedDylibs", std::move(dylibs)}};
}

void showDylibs(const Value& slice, TextOutput& text) {
  text.heading(textAt(slice, "architectureName").value_or("") + " links");
  for (const auto& dylib : entriesAt(slice, "linkedDylibs")) {
    const std::string kind = textAt(dylib, "kind").value_or("");
    text.line(textAt(dylib, "path").value_or("") + (kind == "plain" ? "" : " (" + kind + ")"));
  }
}

}  // namespace

foundation::Result<std::shared_ptr<QVTMachOBinary>> openBinary(const std::string& path) {
  auto binary = QVTMachOBinary::MachOBinaryWithPath(path);
  if (!binary) return unreadable(path, "not a regular file, or too short for a Mach-O file");
  const bool isMachO =
      std::ranges::any_of(binary->slices(), [](const auto& s) { return s->contents().hasHeader; });
  if (!isMachO) return unreadable(path, "not a Mach-O file");
  return binary;
}

Value describeBinary(const QVTMachOBinary& binary) {
  auto slices = listOf(binary.slices(), [](const auto& slice) { return describeSlice(*slice); });
  const bool identified =
      std::ranges::all_of(binary.slices(), [](const auto& s) { return s->uuid().has_value(); });
  return Dictionary{
      {"slices", std::move(slices)},
      {"instanceIdentifier", identified ? Value(binary.instanceIdentifier()) : Value()}};
}

void showBinary(const Value& document, TextOutput& text) {
  std::vector<TextOutput::Row> rows;
  for (const auto& slice : entriesAt(document, "slices")) {
    auto& row = rows.emplace_back(
        rowOf(slice, {"architectureName", "uuid", "minimumOSVersion", "linkedSDKVersion"}));
    row.push_back(std::to_string(entriesAt(slice, "linkedDylibs").size()));
  }
  text.table({"architecture", "uuid", "min OS", "SDK", "dylibs"}, rows);
  text.fields(fieldsOf(document, {"instanceIdentifier"}));
  if (!text.isDetailed()) return;
  for (const auto& slice : entriesAt(document, "slices")) showDylibs(slice, text);
}

foundation::Result<Report> reportMachO(const Arguments& arguments) {
  return openBinary(arguments.operands()[0]).map([](const std::shared_ptr<QVTMachOBinary>& binary) {
    return Report{describeBinary(*binary), showBinary};
  });
}

}  // namespace inspect
