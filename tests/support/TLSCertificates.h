#pragma once

#include <memory>
#include <string>

namespace test {

/// A server's certificate chain and private key, both PEM.
struct TLSIdentity {
  std::string certificateChain;
  std::string privateKey;
};

/// A certificate authority of a test's own (P-256), made anew for each object.
class TLSAuthority {
 public:
  TLSAuthority();
  ~TLSAuthority();
  TLSAuthority(const TLSAuthority&) = delete;
  TLSAuthority& operator=(const TLSAuthority&) = delete;

  /// Its own certificate as PEM, for a client's list of trusted ones.
  [[nodiscard]] std::string certificate() const;

  struct Leaf {
    std::string hostName = "localhost";
    /// Days from now; a negative one is over.
    int expiresAfterDays = 30;
  };
  [[nodiscard]] TLSIdentity issue(const Leaf& leaf) const;
  [[nodiscard]] TLSIdentity issue() const { return issue(Leaf()); }

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace test
