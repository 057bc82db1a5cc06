#pragma once

#include <memory>
#include <string>

#include "preparation/QVTCodeSignedResource.h"

/// An .ipa archive: inflated on creation, with the first app of its "Payload" folder as the
/// resource. It has no creation date.
class QVTIPA : public QVTCodeSignedResource {
 public:
  /// Inflates the archive into the temporary directory, where it stays. Empty on any failure; one
  /// to inflate it is told on the console, a missing app is not, and one that is only a link is
  /// told in the system log.
  static std::shared_ptr<QVTIPA> initWithPath(const std::string& path);

 protected:
  [[nodiscard]] std::string_view className() const override { return "QVTIPA"; }

 private:
  QVTIPA() = default;
};
