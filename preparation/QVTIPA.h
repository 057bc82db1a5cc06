#pragma once

#include <memory>
#include <string>

#include "foundation/base/Result.h"
#include "preparation/Inflation.h"
#include "preparation/QVTCodeSignedResource.h"

/// An .ipa archive, unpacked on creation. The resource is the first app in its "Payload" folder,
/// without a creation date.
class QVTIPA : public QVTCodeSignedResource {
 public:
  /// Unpacks the archive into the temporary directory, where it stays. Empty on any failure. The
  /// console reports a failure to unpack, the system log any other except a missing app.
  static std::shared_ptr<QVTIPA> initWithPath(const std::string& path);
  /// The first app that came with the archive. Fails if there is none (code ENOENT), if it or
  /// "Payload" is a link, and if it cannot be opened. The system log names apps from elsewhere.
  static foundation::Result<std::shared_ptr<QVTIPA>> withInflation(const Inflation& inflation);

 protected:
  [[nodiscard]] std::string_view className() const override { return "QVTIPA"; }

 private:
  QVTIPA() = default;
};
