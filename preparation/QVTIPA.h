#pragma once

#include <memory>
#include <string>

#include "foundation/base/Result.h"
#include "preparation/Inflation.h"
#include "preparation/QVTCodeSignedResource.h"

/// An .ipa archive: inflated on creation, with the first app that it brings into its "Payload"
/// folder as the resource. It has no creation date.
class QVTIPA : public QVTCodeSignedResource {
 public:
  /// Inflates the archive into the temporary directory, where it stays. Empty on any failure; one
  /// to inflate it is told on the console, a missing app is not, and one that is only a link is
  /// told in the system log.
  static std::shared_ptr<QVTIPA> initWithPath(const std::string& path);
  /// The first app that the archive has brought. Fails when there is none (code ENOENT), when it or
  /// its "Payload" is a link, and when it cannot be opened; the system log names the apps that are
  /// passed over since they are not the archive's.
  static foundation::Result<std::shared_ptr<QVTIPA>> withInflation(const Inflation& inflation);

 protected:
  [[nodiscard]] std::string_view className() const override { return "QVTIPA"; }

 private:
  QVTIPA() = default;
};
