#pragma once

#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace test {

/// `tests/runs/service.py` as a server on 127.0.0.1 that does what it is told, right or wrong.
class ScriptedServer {
 public:
  /// `behaviours` are "OCCASION=STEPS" as service.py's `Service` describes; an occasion is mostly a
  /// pattern of request targets. `tls` is a file with certificate and key; without, it is plain
  /// HTTP.
  explicit ScriptedServer(const std::vector<std::string>& behaviours, const std::string& tls = "");
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  /// "http://127.0.0.1:PORT" or "https://localhost:PORT", with `path` appended.
  [[nodiscard]] std::string url(const std::string& path = "/") const { return address_ + path; }
  [[nodiscard]] std::string port() const { return address_.substr(address_.rfind(':') + 1); }
  /// Every byte of each request so far, in the order of their arrival; of one that was responded to
  /// early, only the headers.
  [[nodiscard]] std::vector<std::string> requests() const;

 private:
  TemporaryFolder folder_;
  std::string address_;
  pid_t process_ = -1;
};

/// Writes localhost.pem, for a server, and authority.pem, for those who trust it.
void writeServerCertificate(const std::filesystem::path& folder);

/// Any bytes as service.py reads them in steps.
std::string escaped(std::string_view bytes);

}  // namespace test
