#include "foundation/net/private/CurlLibrary.h"

#include <array>
#include <map>
#include <mutex>
#include <string>

#include "foundation/base/Text.h"
#include "foundation/net/private/CurlErrors.h"

namespace foundation {

namespace {

void initialiseLibrary() {
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) throw Exception("libcurl cannot be initialised");
}

/// A jar that transfers on several threads share.
class CookieJar {
 public:
  CookieJar() : share_(curl_share_init()) {
    if (!share_) throw std::bad_alloc();
    curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
    curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &CookieJar::lock);
    curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &CookieJar::unlock);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
  }
  CookieJar(const CookieJar&) = delete;

  [[nodiscard]] CURLSH* share() const { return share_; }

 private:
  static void lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    static_cast<CookieJar*>(self)->locks_[data].lock();
  }
  static void unlock(CURL*, curl_lock_data data, void* self) {
    static_cast<CookieJar*>(self)->locks_[data].unlock();
  }

  CURLSH* share_;
  std::array<std::mutex, CURL_LOCK_DATA_LAST> locks_;
};

}  // namespace

CurlMulti makeCurlMulti() {
  initialiseLibrary();
  CurlMulti multi(curl_multi_init());
  if (!multi) throw std::bad_alloc();
  return multi;
}

CURLSH* cookieJarFor(const URL& url) {
  // Never destroyed: transfers may outlive the main function's statics.
  static auto& mutex = *new std::mutex;
  static auto& jars = *new std::map<std::string, CookieJar>;
  initialiseLibrary();
  const std::lock_guard guard(mutex);
  return jars[url.scheme() + "://" + lowercased(placeOf(url))].share();
}

}  // namespace foundation
