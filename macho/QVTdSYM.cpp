#include "macho/QVTdSYM.h"

#include <string_view>
#include <utility>

#include "foundation/base/Path.h"
#include "foundation/file/FileManager.h"

namespace {

constexpr std::string_view kIdentifierPrefix = "com.apple.xcode.dsym.";

}  // namespace

QVTdSYM::QVTdSYM(std::shared_ptr<foundation::Bundle> bundle, std::shared_ptr<QVTMachOBinary> binary)
    : bundle_(std::move(bundle)), binary_(std::move(binary)) {}

std::shared_ptr<QVTdSYM> QVTdSYM::dSYMWithURL(const foundation::URL& url) {
  return initWithURL(url);
}

std::shared_ptr<QVTdSYM> QVTdSYM::initWithURL(const foundation::URL& url) {
  const std::string path = url.path();
  if (!foundation::FileManager::fileExistsAtPath(path)) return nullptr;
  auto bundle = foundation::Bundle::bundleWithPath(path);
  if (!bundle) return nullptr;
  const std::string folder = foundation::appendingPathComponent(path, "Contents/Resources/DWARF");
  if (!foundation::FileManager::isDirectoryAtPath(folder)) return nullptr;
  const auto entries = foundation::FileManager::subpathsOfDirectoryAtPath(folder);
  if (!entries || entries->empty()) return nullptr;
  auto binary = QVTMachOBinary::initWithURL(foundation::URL::fileURLWithPath(
      foundation::appendingPathComponent(folder, entries->front())));
  return std::shared_ptr<QVTdSYM>(new QVTdSYM(std::move(bundle), std::move(binary)));
}

std::optional<std::string> QVTdSYM::bundleIdentifier() const {
  auto identifier = bundle_->bundleIdentifier();
  if (identifier && identifier->starts_with(kIdentifierPrefix)) {
    identifier->erase(0, kIdentifierPrefix.size());
  }
  return identifier;
}

std::optional<foundation::URL> QVTdSYM::executableURL() const {
  if (!binary_) return std::nullopt;
  return binary_->URL();
}

std::optional<std::string> QVTdSYM::executablePath() const {
  if (!binary_) return std::nullopt;
  return binary_->path();
}

std::optional<std::string> QVTdSYM::bundleVersion() const {
  return foundation::stringAt(bundle_->infoDictionary(), "CFBundleVersion");
}

std::optional<std::string> QVTdSYM::shortBundleVersion() const {
  return foundation::stringAt(bundle_->infoDictionary(), "CFBundleShortVersionString");
}

void QVTdSYM::enumerateUUIDs(const QVTMachOBinary::UUIDCallback& callback) const {
  if (binary_) binary_->enumerateUUIDs(callback);
}
