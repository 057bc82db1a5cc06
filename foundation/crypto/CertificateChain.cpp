#include "foundation/crypto/CertificateChain.h"

#include <algorithm>

namespace foundation {

namespace {

/// A certificate on the way up from the leaf.
struct Step {
  const Certificate* certificate = nullptr;
  /// The step that it was reached from.
  std::size_t from = 0;
  /// Issuers between this one and the leaf.
  std::size_t below = 0;
};

/// Valid certificates first, then by expiry date, latest first, so that a renewed issuer is
/// preferred to the expired one with the same name and key.
std::vector<const Certificate*> inOrderOfPreference(const std::vector<Certificate>& candidates) {
  const Date now = currentDate();
  std::vector<const Certificate*> order;
  order.reserve(candidates.size());
  for (const Certificate& candidate : candidates) order.push_back(&candidate);
  std::ranges::stable_sort(order, [now](const Certificate* a, const Certificate* b) {
    const bool aValid = a->isValidAt(now);
    const bool bValid = b->isValidAt(now);
    return aValid != bValid ? aValid : a->notAfter() > b->notAfter();
  });
  return order;
}

/// Moves the issuers of `certificate` out of `left`; they keep their order.
std::vector<const Certificate*> takeIssuers(const Certificate& certificate,
                                            std::vector<const Certificate*>& left) {
  const auto rest = std::stable_partition(
      left.begin(), left.end(),
      [&](const Certificate* candidate) { return !certificate.isIssuedBy(*candidate); });
  std::vector<const Certificate*> issuers(rest, left.end());
  left.erase(rest, left.end());
  return issuers;
}

std::vector<Certificate> walkedBack(const std::vector<Step>& steps, std::size_t last) {
  std::vector<Certificate> chain{*steps[last].certificate};
  while (last != 0) {
    last = steps[last].from;
    chain.push_back(*steps[last].certificate);
  }
  std::ranges::reverse(chain);
  return chain;
}

}  // namespace

Result<std::vector<Certificate>> certificateChain(const Certificate& leaf,
                                                  const std::vector<Certificate>& candidates) {
  auto left = inOrderOfPreference(candidates);
  std::vector<Step> steps{{&leaf}};
  const Certificate* orphan = &leaf;
  bool isRefused = false;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Certificate& current = *steps[i].certificate;
    if (current.isSelfIssued()) return walkedBack(steps, i);
    const auto issuers = takeIssuers(current, left);
    const std::size_t before = steps.size();
    const std::size_t below = i == 0 ? 0 : steps[i].below + 1;
    for (const Certificate* issuer : issuers) {
      if (issuer->mayIssueAbove(below)) steps.push_back({issuer, i, below});
    }
    if (steps.size() > before) continue;
    orphan = &current;
    isRefused = !issuers.empty();
  }
  return makeError(kCertificateErrorDomain, kCertificateWithoutChain,
                   "the certificate \"" + orphan->subjectSummary().value_or("without a name") +
                       "\" was issued by \"" + orphan->issuerText() +
                       (isRefused ? "\", whose certificate may not issue it"
                                  : "\", and no certificate of that issuer is at hand"));
}

}  // namespace foundation
