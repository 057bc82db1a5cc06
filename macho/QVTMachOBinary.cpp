#include "macho/QVTMachOBinary.h"

#include <algorithm>
#include <map>

#include "foundation/base/Error.h"
#include "foundation/base/Format.h"
#include "macho/Hashing.h"
#include "macho/private/Mappings.h"

std::shared_ptr<QVTMachOBinary> QVTMachOBinary::MachOBinaryWithPath(std::string_view path) {
  return initWithURL(foundation::URL::fileURLWithPath(path));
}

std::shared_ptr<QVTMachOBinary> QVTMachOBinary::initWithURL(const foundation::URL& url) {
  auto binary = std::shared_ptr<QVTMachOBinary>(new QVTMachOBinary(url));
  if (!macho::QVTMachOFileInitWithPath(&binary->file_, binary->path().c_str())) return nullptr;
  binary->readSlices();
  if (const auto intact = macho::checkMapping(binary->file_.mappedFile); !intact) {
    throw foundation::Exception(intact.error().localizedDescription());
  }
  return binary;
}

QVTMachOBinary::~QVTMachOBinary() { macho::QVTMachOFileDestroy(&file_); }

void QVTMachOBinary::readSlices() {
  macho::ReadingBudget budget(file_.mappedFile);
  macho::QVTMachOFileEnumerateSlices(&file_, [&](const macho::QVTMachOSlice* slice) {
    slices_.push_back(QVTMachOSlice::initWithSlice(slice, budget));
  });
}

const std::string& QVTMachOBinary::instanceIdentifier() const {
  if (instanceIdentifier_) return *instanceIdentifier_;
  // Equal names stay in file order.
  std::multimap<std::string, std::size_t> places;
  for (std::size_t i = 0; i < slices_.size(); ++i) {
    places.emplace(slices_[i]->architectureName(), i);
  }
  std::string text;
  for (const auto& [name, index] : places) {
    const auto& uuid = slices_[index]->uuid();
    if (!uuid) {
      throw foundation::Exception(foundation::format(
          "%@: slice %lu of %lu (%@) has no UUID, so the build cannot be identified", path(),
          index + 1, slices_.size(), name));
    }
    text += *uuid;
  }
  instanceIdentifier_ = hashNSString(text);
  return *instanceIdentifier_;
}

void QVTMachOBinary::enumerateUUIDs(const UUIDCallback& callback) const {
  for (const auto& slice : slices_) callback(slice->uuid(), slice->architectureName());
}

std::shared_ptr<QVTMachOSlice> QVTMachOBinary::sliceForArchitecture(std::string_view name) const {
  const auto found = std::ranges::find_if(
      slices_, [&](const auto& slice) { return slice->architectureName() == name; });
  return found == slices_.end() ? nullptr : *found;
}

std::string QVTMachOBinary::hashNSString(std::string_view text) {
  return macho::QVTHashNSString(text);
}
