#pragma once

#include <new>

#include <curl/curl.h>

#include "foundation/base/Handle.h"
#include "foundation/base/URL.h"

// libcurl's handles; for this folder's own sources only.

namespace foundation {

using CurlEasy = Handle<CURL, curl_easy_cleanup>;
using CurlMulti = Handle<CURLM, curl_multi_cleanup>;
using CurlList = Handle<curl_slist, curl_slist_free_all>;

/// A new multi handle; initialises the library on first use. Throws when memory runs out.
CurlMulti makeCurlMulti();

/// The process's cookies for the origin of `url`, in memory, safe to use from several threads at
/// once. Lives as long as the process.
CURLSH* cookieJarFor(const URL& url);

/// Every option that is set here exists in the oldest version of the library that this builds with,
/// so only lack of memory can make it fail. Throws then.
template <class T>
void setOption(CURL* easy, CURLoption option, T value) {
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) throw std::bad_alloc();
}

}  // namespace foundation
