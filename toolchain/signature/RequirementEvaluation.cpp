#include "toolchain/signature/RequirementEvaluation.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "foundation/crypto/DER.h"

namespace toolchain {

namespace {

using foundation::Bytes;
using foundation::bytesOf;
using foundation::Certificate;
using foundation::textOf;
using foundation::Value;
using requirement::Expression;
using requirement::Match;
using requirement::Operation;

constexpr std::string_view kCertificatePolicies = "2.5.29.32";

/// Field names of the requirement language and their object identifiers.
using Field = std::pair<std::string_view, std::string_view>;
constexpr std::array<Field, 9> kSubjectFields{
    {{"subject.C", "2.5.4.6"},
     {"subject.D", "2.5.4.13"},
     {"subject.L", "2.5.4.7"},
     {"subject.N", "2.5.4.41"},
     {"subject.O", foundation::kOIDOrganizationName},
     {"subject.OU", foundation::kOIDOrganizationalUnitName},
     {"subject.SN", "2.5.4.5"},
     {"subject.ST", "2.5.4.8"},
     {"subject.UID", "0.9.2342.19200300.100.1.1"}}};

/// Far more than any requirement needs that was not made to take long.
constexpr std::uint64_t kMostWork = 1 << 26;
/// Reading a certificate's names takes some time for each of its bytes.
constexpr std::uint64_t kWorkPerByte = 8;

/// The work an evaluation may still do, in bytes examined.
class Budget {
 public:
  /// False once the budget is exhausted.
  bool spend(std::uint64_t work) {
    left_ -= std::min(left_, work);
    return left_ > 0;
  }
  bool spendOn(const Certificate* certificate) {
    return !certificate || spend(certificate->der().size() * kWorkPerByte);
  }
  [[nodiscard]] bool isExhausted() const { return left_ == 0; }

 private:
  std::uint64_t left_ = kMostWork;
};

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

/// Removes leading zeros from `text`; the number of digits it then begins with.
std::size_t takeNumber(std::string_view& text) {
  while (text.size() > 1 && text[0] == '0' && isDigit(text[1])) text.remove_prefix(1);
  const auto end = std::find_if_not(text.begin(), text.end(), isDigit);
  return static_cast<std::size_t>(end - text.begin());
}

/// Below, at or above zero; runs of digits compare as numbers, so "10.2" is above "9".
int compare(std::string_view a, std::string_view b) {
  while (!a.empty() && !b.empty()) {
    std::size_t countA = 1;
    std::size_t countB = 1;
    if (isDigit(a[0]) && isDigit(b[0])) {
      countA = takeNumber(a);
      countB = takeNumber(b);
      if (countA != countB) return countA < countB ? -1 : 1;
    }
    if (const int order = a.substr(0, countA).compare(b.substr(0, countB)); order != 0) {
      return order;
    }
    a.remove_prefix(countA);
    b.remove_prefix(countB);
  }
  return static_cast<int>(!a.empty()) - static_cast<int>(!b.empty());
}

bool matchesText(std::string_view text, Match match, std::string_view value, Budget& budget) {
  const std::uint64_t effort = match == Match::contains ? value.size() : 1;
  if (!budget.spend((text.size() + 1) * (effort + 1))) return false;
  switch (match) {
    case Match::exists:
      return true;
    case Match::absent:
      return false;
    case Match::equal:
      return text == value;
    case Match::contains:
      return text.find(value) != std::string_view::npos;
    case Match::beginsWith:
      return text.starts_with(value);
    case Match::endsWith:
      return text.ends_with(value);
    case Match::less:
      return compare(text, value) < 0;
    case Match::greater:
      return compare(text, value) > 0;
    case Match::lessEqual:
      return compare(text, value) <= 0;
    case Match::greaterEqual:
      return compare(text, value) >= 0;
  }
  return false;
}

bool matchesText(const std::optional<std::string>& text, const Expression& expression,
                 Budget& budget) {
  if (!text) return expression.match == Match::absent;
  return matchesText(*text, expression.match, expression.matchValue, budget);
}

/// False counts as absent; any element of an array may match.
bool matchesValue(const Value* value, const Expression& expression, Budget& budget) {
  const bool isThere = value && !(value->boolean() && !*value->boolean());
  if (expression.match == Match::absent) return !isThere;
  if (!isThere) return false;
  if (expression.match == Match::exists) return true;
  if (const auto* array = value->array()) {
    return std::ranges::any_of(*array, [&](const Value& each) {
      return budget.spend(1) && each.string() &&
             matchesText(*each.string(), expression.match, expression.matchValue, budget);
    });
  }
  if (const auto* number = value->integer()) {
    return matchesText(std::to_string(*number), expression.match, expression.matchValue, budget);
  }
  return value->string() &&
         matchesText(*value->string(), expression.match, expression.matchValue, budget);
}

/// Positions below zero count from the root, which is -1. Null when there is none.
const Certificate* certificateAt(const RequirementSubject& subject, std::int64_t position) {
  const auto count = static_cast<std::int64_t>(subject.chain.size());
  if (position < 0) position += count;
  if (position < 0 || position >= count) return nullptr;
  return &subject.chain[static_cast<std::size_t>(position)];
}

bool matchesField(const Certificate* certificate, const Expression& expression, Budget& budget) {
  if (!certificate) return expression.match == Match::absent;
  if (expression.key == "subject.CN") {
    return matchesText(certificate->commonName(), expression, budget);
  }
  const auto* field = std::ranges::find(kSubjectFields, expression.key, &Field::first);
  return field != kSubjectFields.end() &&
         matchesText(certificate->subjectValue(field->second), expression, budget);
}

bool matchesExtension(const Certificate* certificate, const Expression& expression,
                      Budget& budget) {
  const auto value =
      certificate ? certificate->extensionValue(foundation::DER::dotted(bytesOf(expression.key)))
                  : std::nullopt;
  if (!value) return expression.match == Match::absent;
  const auto element = foundation::DER::Reader(value->bytes()).next();
  const std::string_view text = element ? textOf(element->content) : value->text();
  return matchesText(text, expression.match, expression.matchValue, budget);
}

bool hasPolicy(const Certificate* certificate, std::string_view policyOID) {
  const auto value = certificate ? certificate->extensionValue(kCertificatePolicies) : std::nullopt;
  const auto list =
      value ? foundation::DER::single(value->bytes(), foundation::DER::kSequence) : std::nullopt;
  foundation::DER::Reader policies(list ? list->content : Bytes());
  while (const auto policy = policies.next(foundation::DER::kSequence)) {
    const auto oid =
        foundation::DER::Reader(policy->content).next(foundation::DER::kObjectIdentifier);
    if (oid && textOf(oid->content) == policyOID) return true;
  }
  return false;
}

bool meets(const RequirementSubject& subject, const Expression& expression, Budget& budget) {
  const Certificate* certificate = certificateAt(subject, expression.certificate);
  const auto operand = [&](std::size_t index) {
    return meets(subject, expression.operands.at(index), budget);
  };
  const auto spendOnChain = [&] {
    return std::ranges::all_of(subject.chain,
                               [&](const Certificate& each) { return budget.spendOn(&each); });
  };
  if (!budget.spend(1)) return false;
  switch (expression.operation) {
    case Operation::never:
      return false;
    case Operation::always:
      return true;
    case Operation::identifier:
      return subject.identifier == expression.data;
    case Operation::anchorApple:
      return isAppleOwn(subject.chain, subject.isAppleRoot);
    case Operation::anchorAppleGeneric:
      return spendOnChain() && endsInAppleRoot(subject.chain, subject.isAppleRoot);
    case Operation::anchorHash:
      return budget.spendOn(certificate) && certificate &&
             textOf(certificate->sha1()) == expression.data;
    case Operation::conjunction:
      return operand(0) && operand(1);
    case Operation::disjunction:
      return operand(0) || operand(1);
    case Operation::negation:
      return !operand(0);
    case Operation::cdHash:
      return std::ranges::any_of(subject.cdHashes,
                                 [&](const auto& each) { return textOf(each) == expression.data; });
    case Operation::infoKey:
      return matchesValue(foundation::find(subject.info, expression.key), expression, budget);
    case Operation::entitlement:
      return matchesValue(foundation::find(subject.entitlements, expression.key), expression,
                          budget);
    case Operation::certificateField:
      return budget.spendOn(certificate) && matchesField(certificate, expression, budget);
    case Operation::certificateOID:
      return budget.spendOn(certificate) && matchesExtension(certificate, expression, budget);
    case Operation::certificatePolicy:
      return budget.spendOn(certificate) &&
             hasPolicy(certificate, expression.key) == (expression.match != Match::absent);
  }
  return false;
}

}  // namespace

bool meets(const RequirementSubject& subject, const Expression& expression) {
  Budget budget;
  return meets(subject, expression, budget) && !budget.isExhausted();
}

}  // namespace toolchain
