#include "toolchain/signature/Requirement.h"

#include <algorithm>
#include <array>

#include "foundation/base/Text.h"
#include "foundation/crypto/DER.h"
#include "toolchain/common/Messages.h"

namespace toolchain {

using requirement::Expression;
using requirement::Match;
using requirement::Operation;

namespace {

constexpr int kMaximumDepth = 128;
constexpr std::uint32_t kExpressionKind = 1;
constexpr std::uint32_t kMaximumRequirements = 16;
constexpr std::string_view kAppleRootName = "Apple Root CA";
/// SHA-256 of Apple Root CA, Apple Root CA - G2 and Apple Root CA - G3.
constexpr std::array<std::string_view, 3> kAppleRoots = {
    "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024",
    "c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050",
    "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179"};

/// Reads the prefix form.
class ExpressionReader {
 public:
  explicit ExpressionReader(Bytes bytes) : bytes_(bytes) {}

  Result<Expression> read(int depth);
  [[nodiscard]] bool atEnd() const { return offset_ == bytes_.size(); }
  [[nodiscard]] std::uint64_t offset() const { return offset_; }

 private:
  Result<std::uint32_t> number();
  Result<> readOperands(Expression& expression, int count, int depth);
  Result<> readText(std::string& out);
  Result<> readCertificate(Expression& expression);
  Result<> readMatch(Expression& expression);
  Result<> readDetails(Expression& expression, int depth);
  [[nodiscard]] foundation::Error cutOff() const {
    return failure("requirement is cut off at byte " + std::to_string(offset_));
  }

  Bytes bytes_;
  std::uint64_t offset_ = 0;
};

Result<std::uint32_t> ExpressionReader::number() {
  const auto value = bigEndian32At(bytes_, offset_);
  if (!value) return cutOff();
  offset_ += 4;
  return *value;
}

Result<> ExpressionReader::readText(std::string& out) {
  const auto length = number();
  if (!length) return length.error();
  const std::uint64_t padded = (std::uint64_t{*length} + 3) / 4 * 4;
  const auto window = foundation::slice(bytes_, offset_, padded);
  if (!window) return cutOff();
  out = foundation::textOf(window->first(*length));
  offset_ += padded;
  return {};
}

Result<> ExpressionReader::readCertificate(Expression& expression) {
  const auto position = number();
  if (!position) return position.error();
  expression.certificate = static_cast<std::int32_t>(*position);
  return {};
}

Result<> ExpressionReader::readMatch(Expression& expression) {
  const auto kind = number();
  if (!kind) return kind.error();
  expression.match = static_cast<Match>(*kind);
  if (expression.match == Match::exists || expression.match == Match::absent) return {};
  if (*kind > static_cast<std::uint32_t>(Match::greaterEqual)) {
    return failure("requirement: match " + std::to_string(*kind) + " is unknown");
  }
  return readText(expression.matchValue);
}

Result<> ExpressionReader::readOperands(Expression& expression, int count, int depth) {
  for (int i = 0; i < count; ++i) {
    auto operand = read(depth + 1);
    if (!operand) return operand.error();
    expression.operands.push_back(std::move(*operand));
  }
  return {};
}

Result<> ExpressionReader::readDetails(Expression& expression, int depth) {
  switch (expression.operation) {
    case Operation::never:
    case Operation::always:
    case Operation::anchorApple:
    case Operation::anchorAppleGeneric:
      return {};
    case Operation::identifier:
    case Operation::cdHash:
      return readText(expression.data);
    case Operation::anchorHash: {
      const auto read = readCertificate(expression);
      return read ? readText(expression.data) : read;
    }
    case Operation::conjunction:
    case Operation::disjunction:
      return readOperands(expression, 2, depth);
    case Operation::negation:
      return readOperands(expression, 1, depth);
    case Operation::infoKey:
    case Operation::entitlement: {
      const auto read = readText(expression.key);
      return read ? readMatch(expression) : read;
    }
    case Operation::certificateField:
    case Operation::certificateOID:
    case Operation::certificatePolicy: {
      auto read = readCertificate(expression);
      if (read) read = readText(expression.key);
      return read ? readMatch(expression) : read;
    }
  }
  return failure("requirement: operation " +
                 std::to_string(static_cast<std::uint32_t>(expression.operation)) + " is unknown");
}

Result<Expression> ExpressionReader::read(int depth) {
  if (depth > kMaximumDepth) return failure("requirement is nested too deep");
  const auto operation = number();
  if (!operation) return operation.error();
  Expression expression;
  expression.operation = static_cast<Operation>(*operation);
  if (const auto read = readDetails(expression, depth); !read) return read.error();
  return expression;
}

// Writing

void writeText(ByteWriter& out, std::string_view text) {
  out.u32(static_cast<std::uint32_t>(text.size()));
  out.append(text);
  out.zeros((4 - text.size() % 4) % 4);
}

void write(ByteWriter& out, const Expression& expression) {
  out.u32(static_cast<std::uint32_t>(expression.operation));
  for (const Expression& operand : expression.operands) write(out, operand);
  const bool hasMatch = expression.operation == Operation::infoKey ||
                        expression.operation == Operation::entitlement ||
                        expression.operation == Operation::certificateField ||
                        expression.operation == Operation::certificateOID ||
                        expression.operation == Operation::certificatePolicy;
  if (expression.operation == Operation::anchorHash ||
      (hasMatch && expression.operation != Operation::infoKey &&
       expression.operation != Operation::entitlement)) {
    out.u32(static_cast<std::uint32_t>(expression.certificate));
  }
  if (hasMatch) {
    writeText(out, expression.key);
    out.u32(static_cast<std::uint32_t>(expression.match));
    if (expression.match != Match::exists && expression.match != Match::absent) {
      writeText(out, expression.matchValue);
    }
  }
  if (expression.operation == Operation::identifier || expression.operation == Operation::cdHash ||
      expression.operation == Operation::anchorHash) {
    writeText(out, expression.data);
  }
}

Expression both(Expression a, Expression b) {
  Expression result;
  result.operation = Operation::conjunction;
  result.operands = {std::move(a), std::move(b)};
  return result;
}

Expression leafIsNamed(const foundation::Certificate& leaf) {
  Expression name;
  name.operation = Operation::certificateField;
  name.key = "subject.CN";
  name.match = Match::equal;
  name.matchValue = leaf.commonName().value_or("");
  return name;
}

Expression issuerIsMarked() {
  Expression mark;
  mark.operation = Operation::certificateOID;
  mark.certificate = 1;
  // The operand is the identifier's content, without tag and length.
  mark.key = foundation::DER::objectIdentifier(kDeveloperIssuerMark).substr(2);
  return mark;
}

Expression lastOfOrganization(const std::vector<foundation::Certificate>& chain) {
  const auto organization = chain.front().subjectValue(foundation::kOIDOrganizationName);
  std::size_t last = 0;
  while (last + 1 < chain.size() &&
         foundation::isEqual(organization,
                             chain[last + 1].subjectValue(foundation::kOIDOrganizationName))) {
    ++last;
  }
  const auto hash = chain[last].sha1();
  Expression expression;
  expression.operation = Operation::anchorHash;
  expression.certificate = last + 1 == chain.size() ? -1 : static_cast<std::int32_t>(last);
  expression.data = foundation::textOf(hash);
  return expression;
}

}  // namespace

Result<std::vector<TypedRequirement>> parseRequirementSet(Bytes blob) {
  const auto payload = blobPayload(blob, magic::kRequirementSet);
  if (!payload) return within("requirements", payload.error());
  const auto count = bigEndian32At(blob, 8);
  if (!count || *count > kMaximumRequirements) {
    return failure("requirements: count " + std::to_string(count.value_or(0)) +
                   " does not fit the blob");
  }
  std::vector<TypedRequirement> requirements;
  for (std::uint32_t i = 0; i < *count; ++i) {
    const auto type = bigEndian32At(blob, 12 + std::uint64_t{i} * 8);
    const auto offset = bigEndian32At(blob, 16 + std::uint64_t{i} * 8);
    const auto length = offset ? bigEndian32At(blob, std::uint64_t{*offset} + 4) : std::nullopt;
    const auto window = length ? foundation::slice(blob, *offset, *length) : std::nullopt;
    if (!window) {
      return failure("requirement " + std::to_string(i) + " of " + std::to_string(*count) +
                     " lies outside the blob");
    }
    const bool isRepeated =
        std::ranges::find(requirements, *type, &TypedRequirement::type) != requirements.end();
    if (isRepeated) {
      return failure("requirement " + std::to_string(i) + " of " + std::to_string(*count) +
                     ": a second one of type " + std::to_string(*type));
    }
    requirements.push_back({*type, *window});
  }
  return requirements;
}

Result<Expression> parseRequirement(Bytes blob) {
  const auto payload = blobPayload(blob, magic::kRequirement);
  if (!payload) return within("requirement", payload.error());
  const auto kind = bigEndian32At(*payload, 0);
  if (kind != kExpressionKind) {
    return failure("requirement: kind " + std::to_string(kind.value_or(0)) + " is unknown");
  }
  ExpressionReader reader(payload->subspan(4));
  auto expression = reader.read(0);
  if (expression && !reader.atEnd()) {
    return failure("requirement goes on behind its expression, at byte " +
                   std::to_string(reader.offset()));
  }
  return expression;
}

std::vector<std::byte> makeRequirement(const Expression& expression) {
  ByteWriter payload;
  payload.u32(kExpressionKind);
  write(payload, expression);
  return makeBlob(magic::kRequirement, payload.bytes());
}

std::vector<std::byte> makeRequirementSet(const Expression& designated) {
  const auto blob = makeRequirement(designated);
  return makeSuperBlob(magic::kRequirementSet, {{requirement::kDesignated, blob}});
}

std::vector<std::byte> emptyRequirementSet() { return makeSuperBlob(magic::kRequirementSet, {}); }

bool isAppleRoot(const foundation::SHA256Digest& certificate) {
  return std::ranges::find(kAppleRoots, foundation::lowercaseHex(certificate)) != kAppleRoots.end();
}

bool isAppleRoot(const foundation::Certificate& certificate) {
  return isAppleRoot(foundation::sha256(certificate.der().bytes()));
}

bool isNamedLikeAppleRoot(const foundation::Certificate& certificate) {
  return certificate.commonName().value_or("").starts_with(kAppleRootName);
}

bool endsInAppleRoot(const std::vector<foundation::Certificate>& chain, RootTest isAppleRoot) {
  return chain.size() >= 3 && chain.back().isSelfIssued() && isAppleRoot(chain.back());
}

bool isAppleOwn(const std::vector<foundation::Certificate>& chain, RootTest isAppleRoot) {
  return endsInAppleRoot(chain, isAppleRoot) && !chain[1].extensionValue(kDeveloperIssuerMark) &&
         !chain[1].extensionValue(kDeveloperIDIssuerMark);
}

Expression defaultRequirement(const std::string& identifier,
                              const std::vector<foundation::Certificate>& chain) {
  Expression named;
  named.operation = Operation::identifier;
  named.data = identifier;
  const bool isDeveloper = endsInAppleRoot(chain, isNamedLikeAppleRoot) &&
                           chain[1].extensionValue(kDeveloperIssuerMark).has_value();
  if (!isDeveloper) return both(named, lastOfOrganization(chain));
  Expression anchored;
  anchored.operation = Operation::anchorAppleGeneric;
  return both(named, both(anchored, both(leafIsNamed(chain.front()), issuerIsMarked())));
}

}  // namespace toolchain
