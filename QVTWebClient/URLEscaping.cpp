#include "QVTWebClient/URLEscaping.h"

#include "foundation/URL.h"

std::string escapeURLString(std::string_view text) {
  return foundation::percentEscapedKeepingPercent(foundation::percentEscaped(text),
                                                  "!*'\"();:@&=+$,/?#[] ");
}
