#include "QVTWebClient/URLEscaping.h"

#include "foundation/base/URL.h"

std::string escapeURLString(std::string_view text) {
  return foundation::percentEscapedKeepingPercent(foundation::percentEscaped(text),
                                                  "!*'\"();:@&=+$,/?#[] ");
}
