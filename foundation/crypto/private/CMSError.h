#pragma once

#include <string>

#include "foundation/base/Error.h"

namespace foundation::CMS {

inline Error cmsError(std::string description) {
  return makeError("CMSErrorDomain", -1, std::move(description));
}

}  // namespace foundation::CMS
