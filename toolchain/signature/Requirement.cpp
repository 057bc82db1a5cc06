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

/// What follows an operation's number, in this order.
struct Shape {
  Operation operation;
  int operands = 0;
  bool hasCertificate = false;
  bool hasData = false;
  bool hasKeyAndMatch = false;
};
constexpr std::array<Shape, 15> kShapes = {
    {{.operation = Operation::never},
     {.operation = Operation::always},
     {.operation = Operation::identifier, .hasData = true},
     {.operation = Operation::anchorApple},
     {.operation = Operation::anchorHash, .hasCertificate = true, .hasData = true},
     {.operation = Operation::conjunction, .operands = 2},
     {.operation = Operation::disjunction, .operands = 2},
     {.operation = Operation::cdHash, .hasData = true},
     {.operation = Operation::negation, .operands = 1},
     {.operation = Operation::infoKey, .hasKeyAndMatch = true},
     {.operation = Operation::certificateField, .hasCertificate = true, .hasKeyAndMatch = true},
     {.operation = Operation::certificateOID, .hasCertificate = true, .hasKeyAndMatch = true},
     {.operation = Operation::anchorAppleGeneric},
     {.operation = Operation::entitlement, .hasKeyAndMatch = true},
     {.operation = Operation::certificatePolicy, .hasCertificate = true, .hasKeyAndMatch = true}}};

/// Null for a number without a meaning.
const Shape* shapeOf(Operation operation) {
  const auto* shape = std::ranges::find(kShapes, operation, &Shape::operation);
  return shape == kShapes.end() ? nullptr : shape;
}

bool hasValue(Match match) { return match != Match::exists && match != Match::absent; }

/// Reads the prefix form.
class ExpressionReader {
 public:
  explicit ExpressionReader(Bytes bytes) : bytes_(bytes) {}

  Result<Expression> read(int depth) {
    if (depth > kMaximumDepth) return failure("requirement is nested too deeply");
    return number().andThen([&](std::uint32_t operation) {
      Expression expression{.operation = static_cast<Operation>(operation)};
      return readDetails(expression, depth).map([&] { return std::move(expression); });
    });
  }
  [[nodiscard]] bool atEnd() const { return offset_ == bytes_.size(); }
  [[nodiscard]] std::uint64_t offset() const { return offset_; }

 private:
  Result<std::uint32_t> number() {
    const auto value = bigEndian32At(bytes_, offset_);
    if (!value) return truncated();
    offset_ += 4;
    return *value;
  }

  Result<> readText(std::string& out) {
    return number().andThen([&](std::uint32_t length) -> Result<> {
      const std::uint64_t padded = (std::uint64_t{length} + 3) / 4 * 4;
      const auto window = foundation::slice(bytes_, offset_, padded);
      if (!window) return truncated();
      out = foundation::textOf(window->first(length));
      offset_ += padded;
      return {};
    });
  }

  Result<> readMatch(Expression& expression) {
    const auto kind = number();
    if (!kind) return kind.error();
    expression.match = static_cast<Match>(*kind);
    if (!hasValue(expression.match)) return {};
    if (expression.match > Match::greaterEqual) {
      return failure("requirement: match " + std::to_string(*kind) + " is unknown");
    }
    return readText(expression.matchValue);
  }

  Result<> readDetails(Expression& expression, int depth) {
    const Shape* shape = shapeOf(expression.operation);
    if (!shape) {
      return failure("requirement: operation " +
                     std::to_string(static_cast<std::uint32_t>(expression.operation)) +
                     " is unknown");
    }
    Result<> done;
    for (int i = 0; done && i < shape->operands; ++i) {
      done = read(depth + 1).map(
          [&](Expression operand) { expression.operands.push_back(std::move(operand)); });
    }
    if (shape->hasCertificate) {
      done = number().map([&](std::uint32_t position) {
        expression.certificate = static_cast<std::int32_t>(position);
      });
    }
    if (done && shape->hasData) done = readText(expression.data);
    if (done && shape->hasKeyAndMatch) {
      done = readText(expression.key).andThen([&] { return readMatch(expression); });
    }
    return done;
  }

  [[nodiscard]] foundation::Error truncated() const {
    return failure("requirement is truncated at byte " + std::to_string(offset_));
  }

  Bytes bytes_;
  std::uint64_t offset_ = 0;
};

void writeText(ByteWriter& out, std::string_view text) {
  out.u32(static_cast<std::uint32_t>(text.size()));
  out.append(text);
  out.zeros((4 - text.size() % 4) % 4);
}

void write(ByteWriter& out, const Expression& expression) {
  out.u32(static_cast<std::uint32_t>(expression.operation));
  for (const Expression& operand : expression.operands) write(out, operand);
  const Shape* shape = shapeOf(expression.operation);
  if (shape->hasCertificate) out.u32(static_cast<std::uint32_t>(expression.certificate));
  if (shape->hasData) writeText(out, expression.data);
  if (!shape->hasKeyAndMatch) return;
  writeText(out, expression.key);
  out.u32(static_cast<std::uint32_t>(expression.match));
  if (hasValue(expression.match)) writeText(out, expression.matchValue);
}

Expression both(Expression a, Expression b) {
  return {.operation = Operation::conjunction, .operands = {std::move(a), std::move(b)}};
}

Expression leafIsNamed(const foundation::Certificate& leaf) {
  return {.operation = Operation::certificateField,
          .key = "subject.CN",
          .match = Match::equal,
          .matchValue = leaf.commonName().value_or("")};
}

Expression issuerIsMarked() {
  // The operand is the identifier's content, without tag and length.
  return {.operation = Operation::certificateOID,
          .certificate = 1,
          .key = foundation::DER::objectIdentifier(kDeveloperIssuerMark).substr(2)};
}

Expression lastOfOrganization(const std::vector<foundation::Certificate>& chain) {
  const auto organization = chain.front().subjectValue(foundation::kOIDOrganizationName);
  std::size_t last = 0;
  while (last + 1 < chain.size() &&
         foundation::isEqual(organization,
                             chain[last + 1].subjectValue(foundation::kOIDOrganizationName))) {
    ++last;
  }
  return {.operation = Operation::anchorHash,
          .certificate = last + 1 == chain.size() ? -1 : static_cast<std::int32_t>(last),
          .data = std::string(foundation::textOf(chain[last].sha1()))};
}

}  // namespace

Result<std::vector<TypedRequirement>> parseRequirementSet(Bytes blob) {
  const auto payload = blobPayload(blob, magic::kRequirementSet).mapError(within("requirements"));
  if (!payload) return payload.error();
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
    if (std::ranges::find(requirements, *type, &TypedRequirement::type) != requirements.end()) {
      return failure("requirement " + std::to_string(i) + " of " + std::to_string(*count) +
                     ": a second one of type " + std::to_string(*type));
    }
    requirements.push_back({*type, *window});
  }
  return requirements;
}

Result<Expression> parseRequirement(Bytes blob) {
  const auto payload = blobPayload(blob, magic::kRequirement).mapError(within("requirement"));
  if (!payload) return payload.error();
  const auto kind = bigEndian32At(*payload, 0);
  if (kind != kExpressionKind) {
    return failure("requirement: kind " + std::to_string(kind.value_or(0)) + " is unknown");
  }
  ExpressionReader reader(payload->subspan(4));
  auto expression = reader.read(0);
  if (expression && !reader.atEnd()) {
    return failure("requirement continues after its expression, at byte " +
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
  Expression named{.operation = Operation::identifier, .data = identifier};
  const bool isDeveloper = endsInAppleRoot(chain, isNamedLikeAppleRoot) &&
                           chain[1].extensionValue(kDeveloperIssuerMark).has_value();
  if (!isDeveloper) return both(std::move(named), lastOfOrganization(chain));
  return both(std::move(named), both({.operation = Operation::anchorAppleGeneric},
                                     both(leafIsNamed(chain.front()), issuerIsMarked())));
}

}  // namespace toolchain
