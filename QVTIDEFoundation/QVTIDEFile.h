#pragma once

#include "QVTIDEFoundation/QVTIDESourceTreeObject.h"

/// A file reference.
class QVTIDEFile : public QVTIDESourceTreeObject {
 public:
  static std::shared_ptr<QVTIDEFile> initWithObjectDictionaryObjectId(
      const foundation::Dictionary* dictionary, std::string objectId);

  /// Chosen by a user, such as "wrapper.application".
  [[nodiscard]] const std::optional<std::string>& explicitFileType() const {
    return explicitFileType_;
  }
  /// Guessed from the name.
  [[nodiscard]] const std::optional<std::string>& lastKnownFileType() const {
    return lastKnownFileType_;
  }
  /// Class, address and name.
  [[nodiscard]] std::string description() const override;

 protected:
  QVTIDEFile(const foundation::Dictionary* dictionary, std::string objectId);
  [[nodiscard]] std::string_view className() const override { return "QVTIDEFile"; }

 private:
  std::optional<std::string> explicitFileType_;
  std::optional<std::string> lastKnownFileType_;
};
