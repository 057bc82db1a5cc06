#pragma once

#include <string>

#include "tests/support/Identities.h"

namespace test {

/// A server's certificate and private key.
using TLSIdentity = MadeIdentity;

/// A certificate authority for tests, new for each object.
class TLSAuthority {
 public:
  /// Its certificate as PEM, for a client's list of trusted ones.
  [[nodiscard]] std::string certificate() const { return root_.certificatePEM(); }

  struct Leaf {
    std::string hostName = "localhost";
    /// Days from now; negative for an expired one.
    int expiresAfterDays = 30;
  };
  [[nodiscard]] TLSIdentity issue(const Leaf& leaf) const;
  [[nodiscard]] TLSIdentity issue() const { return issue(Leaf()); }

 private:
  MadeIdentity root_ = makeRoot("sendoff test authority");
};

}  // namespace test
