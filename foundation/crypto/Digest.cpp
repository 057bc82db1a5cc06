#include "foundation/crypto/Digest.h"

#include <string>

#include "foundation/base/Assertion.h"
#include "foundation/base/Error.h"
#include "foundation/crypto/OpenSSL.h"

namespace foundation {

namespace {

constexpr std::string_view kSource = "foundation/crypto/Digest.cpp";

constexpr char kSHA1[] = "SHA1";
constexpr char kSHA256[] = "SHA256";
constexpr char kSHA384[] = "SHA384";
constexpr char kMD5[] = "MD5";

/// Looked up once and never freed: a lookup costs more than hashing a page.
template <const char* name>
const EVP_MD* fetched() {
  static const EVP_MD* const algorithm = EVP_MD_fetch(nullptr, name, nullptr);
  if (algorithm) return algorithm;
  throw Exception("the system's crypto library offers no " + std::string(name) + " digest");
}

const EVP_MD* algorithmOf(DigestKind kind) {
  switch (kind) {
    case DigestKind::sha1:
      return fetched<kSHA1>();
    case DigestKind::sha256:
      return fetched<kSHA256>();
    case DigestKind::sha384:
      return fetched<kSHA384>();
  }
  assertionFailed("known digest kind", {"foundation::Digest", kSource, __LINE__});
}

template <class Result>
Result oneShot(const EVP_MD* algorithm, Bytes bytes) {
  Result digest;
  const int done =
      EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()),
                 nullptr, algorithm, nullptr);
  assertThat(done == 1, "done == 1", {"foundation::oneShot", kSource, __LINE__});
  return digest;
}

}  // namespace

SHA1Digest sha1(Bytes bytes) { return oneShot<SHA1Digest>(fetched<kSHA1>(), bytes); }

SHA256Digest sha256(Bytes bytes) { return oneShot<SHA256Digest>(fetched<kSHA256>(), bytes); }

MD5Digest md5(Bytes bytes) { return oneShot<MD5Digest>(fetched<kMD5>(), bytes); }

struct Digest::State {
  const EVP_MD* algorithm = nullptr;
  DigestContextHandle context{EVP_MD_CTX_new()};
  bool finished = false;
};

Digest::Digest(DigestKind kind) : state_(std::make_unique<State>()) {
  state_->algorithm = algorithmOf(kind);
  reset();
}

Digest::Digest(Digest&&) noexcept = default;
Digest& Digest::operator=(Digest&&) noexcept = default;
Digest::~Digest() = default;

void Digest::reset() {
  const int done = EVP_DigestInit_ex2(state_->context.get(), state_->algorithm, nullptr);
  assertThat(done == 1, "done == 1", {"foundation::Digest::reset", kSource, __LINE__});
  state_->finished = false;
}

void Digest::update(Bytes bytes) {
  assertThat(!state_->finished, "!finished", {"foundation::Digest::update", kSource, __LINE__});
  const int done = EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size());
  assertThat(done == 1, "done == 1", {"foundation::Digest::update", kSource, __LINE__});
}

void Digest::finish(std::span<std::byte> out) {
  assertThat(!state_->finished, "!finished", {"foundation::Digest::finish", kSource, __LINE__});
  assertThat(out.size() >= size(), "out.size() >= size()",
             {"foundation::Digest::finish", kSource, __LINE__});
  const int done = EVP_DigestFinal_ex(state_->context.get(),
                                      reinterpret_cast<unsigned char*>(out.data()), nullptr);
  assertThat(done == 1, "done == 1", {"foundation::Digest::finish", kSource, __LINE__});
  state_->finished = true;
}

std::size_t Digest::size() const {
  return static_cast<std::size_t>(EVP_MD_get_size(state_->algorithm));
}

}  // namespace foundation
