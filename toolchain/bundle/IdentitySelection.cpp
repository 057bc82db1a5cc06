#include "toolchain/bundle/IdentitySelection.h"

#include <algorithm>
#include <functional>

#include "foundation/base/Format.h"
#include "foundation/base/Text.h"
#include "foundation/crypto/SigningKeychains.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

namespace {

using foundation::Certificate;
using foundation::Identity;

std::string hashText(const Certificate& certificate) {
  return foundation::uppercaseHex(certificate.sha1());
}

bool isHash(std::string_view name) {
  return name.size() == 40 &&
         std::ranges::all_of(name, [](char c) { return foundation::hexDigit(c) >= 0; });
}

template <class Matches>
std::vector<Identity> filtered(std::vector<Identity> identities, const Matches& matches) {
  std::erase_if(identities, std::not_fn(matches));
  return identities;
}

/// By hash, else by whole common name, else by a part of it.
std::vector<Identity> named(const std::vector<Identity>& identities, const std::string& name) {
  const auto commonName = [](const Identity& one) {
    return one.certificate.commonName().value_or("");
  };
  if (isHash(name)) {
    return filtered(identities, [hash = foundation::lowercased(name)](const Identity& one) {
      return foundation::lowercaseHex(one.certificate.sha1()) == hash;
    });
  }
  auto exact = filtered(identities, [&](const Identity& one) { return commonName(one) == name; });
  if (!exact.empty() || name.empty()) return exact;
  return filtered(identities, [&](const Identity& one) {
    return commonName(one).find(name) != std::string::npos;
  });
}

/// A certificate of the profile counts by its hash alone: anybody can put one of any name there.
Result<std::vector<Identity>> identitiesOfProfile(const IdentityQuery& query,
                                                  const foundation::SigningKeychains& keychains) {
  if (!isHash(query.name)) return std::vector<Identity>();
  std::vector<Identity> all;
  for (const Certificate& certificate : query.profileCertificates) {
    auto identity = keychains.keychain().identityForCertificate(certificate);
    if (identity) all.push_back(*std::move(identity));
  }
  auto found = named(all, query.name);
  if (found.empty()) return found;
  found.resize(1, found.front());
  return keychains.admits(found[0].certificate).map([&] { return std::move(found); });
}

Result<Identity> theOnly(const std::vector<Identity>& found, const std::string& name,
                         const std::string& place) {
  if (found.empty()) {
    return failure("error: The specified item could not be found in the keychain. No identity \"" +
                   name + "\" in " + place);
  }
  if (found.size() == 1) return found.front();
  std::string text = name + ": ambiguous in " + place + ", matches ";
  for (std::size_t i = 0; i < found.size(); ++i) {
    text += (i == 0 ? "\"" : " and \"") + found[i].certificate.commonName().value_or("") + "\" (" +
            hashText(found[i].certificate) + ")";
  }
  return failure(std::move(text));
}

/// Of several certificates with one name, expired ones count only when all are.
std::vector<Identity> preferringValid(const std::vector<Identity>& found, foundation::Date now) {
  auto valid = filtered(found, [&](const Identity& one) { return one.certificate.isValidAt(now); });
  return valid.empty() ? found : valid;
}

Result<> checkValid(const Certificate& certificate, foundation::Date now) {
  if (certificate.isValidAt(now)) return {};
  const bool isTooEarly = now < certificate.notBefore();
  return failure(
      "the certificate \"" + certificate.commonName().value_or(hashText(certificate)) +
      (isTooEarly ? "\" is not valid before " : "\" expired on ") +
      foundation::description(isTooEarly ? certificate.notBefore() : certificate.notAfter()));
}

}  // namespace

Result<SigningIdentity> findIdentity(const IdentityQuery& query) {
  const auto keychains = foundation::SigningKeychains::open(query.keychain);
  if (!keychains) return keychains.error();
  const auto now = foundation::currentDate();
  auto found = preferringValid(named(keychains->keychain().identities(), query.name), now);
  if (found.empty()) {
    auto more = identitiesOfProfile(query, *keychains);
    if (!more) return more.error();
    found = *std::move(more);
  }
  auto identity = theOnly(found, query.name, keychains->name());
  if (!identity) return identity.error();
  return checkValid(identity->certificate, now)
      .andThen([&] { return keychains->chainOf(identity->certificate); })
      .map([&](std::vector<Certificate> chain) {
        return SigningIdentity{*std::move(identity), std::move(chain)};
      });
}

}  // namespace toolchain
