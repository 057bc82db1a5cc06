#include "macho/QVTMachOSlice.h"

#include <utility>

#include "macho/MachOSlice.h"

QVTMachOSlice::QVTMachOSlice(const macho::QVTMachOSlice& slice, macho::SliceContents contents)
    : slice_(slice), contents_(std::move(contents)) {}

std::shared_ptr<QVTMachOSlice> QVTMachOSlice::initWithSlice(const macho::QVTMachOSlice* slice) {
  macho::ReadingBudget budget(slice ? slice->startAddress : nullptr);
  return initWithSlice(slice, budget);
}

std::shared_ptr<QVTMachOSlice> QVTMachOSlice::initWithSlice(const macho::QVTMachOSlice* slice,
                                                            macho::ReadingBudget& budget) {
  const macho::QVTMachOSlice copy = slice ? *slice : macho::QVTMachOSlice{};
  return std::shared_ptr<QVTMachOSlice>(new QVTMachOSlice(copy, macho::readContents(copy, budget)));
}

std::shared_ptr<QVTMachOSlice> QVTMachOSlice::runningSlice() {
  const macho::QVTMachOSlice current = macho::QVTMachOSliceGetCurrent();
  return initWithSlice(&current);
}

std::string QVTMachOSlice::architectureName() const {
  return macho::QVTMachOSliceGetArchitectureName(&slice_);
}

std::vector<std::string> QVTMachOSlice::linkedDylibs() const {
  std::vector<std::string> paths;
  for (const auto& [path, kind] : contents_.dylibs) {
    if (kind == macho::DylibKind::plain) paths.push_back(path);
  }
  return paths;
}

macho::QVTMachOVersion QVTMachOSlice::minimumOSVersion() const {
  return contents_.versionMin.value_or(macho::TargetVersions{}).minimumOS;
}

macho::QVTMachOVersion QVTMachOSlice::linkedSDKVersion() const {
  return contents_.versionMin.value_or(macho::TargetVersions{}).sdk;
}
