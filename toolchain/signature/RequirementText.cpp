#include <algorithm>
#include <array>

#include "foundation/base/Text.h"
#include "foundation/crypto/DER.h"
#include "toolchain/signature/Requirement.h"

namespace toolchain {

using requirement::Expression;
using requirement::Match;
using requirement::Operation;

namespace {

enum class Binding { primary, conjunction, disjunction };

bool isKeyword(std::string_view word) {
  static constexpr std::array<std::string_view, 28> kKeywords = {
      "guest",     "host",   "designated",  "library", "plugin",     "or",          "and",
      "always",    "true",   "never",       "false",   "identifier", "cdhash",      "platform",
      "notarized", "legacy", "anchor",      "apple",   "generic",    "certificate", "cert",
      "trusted",   "info",   "entitlement", "exists",  "absent",     "leaf",        "root"};
  return std::ranges::find(kKeywords, word) != kKeywords.end();
}

bool isLetterOrDigit(char c) { return foundation::isLetter(c) || foundation::isDigit(c); }

std::string operandText(std::string_view operand) {
  const bool isWord = !operand.empty() && !foundation::isDigit(operand[0]) &&
                      std::ranges::all_of(operand, isLetterOrDigit) && !isKeyword(operand);
  if (isWord) return std::string(operand);
  const bool isPrintable =
      std::all_of(operand.begin(), operand.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (!isPrintable) return "0x" + foundation::lowercaseHex(foundation::bytesOf(operand));
  std::string quoted = "\"";
  for (const char c : operand) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string hashText(std::string_view hash) {
  return "H\"" + foundation::lowercaseHex(foundation::bytesOf(hash)) + '"';
}

/// Field names keep their dots.
std::string keyText(const std::string& key) {
  const bool isPlain = !key.empty() && std::all_of(key.begin(), key.end(), [](char c) {
    return isLetterOrDigit(c) || c == '.' || c == '-' || c == '_';
  });
  return isPlain ? key : operandText(key);
}

std::string certificateText(std::int32_t position) {
  if (position == 0) return "certificate leaf";
  if (position == -1) return "certificate root";
  return "certificate " + std::to_string(position);
}

std::string matchText(const Expression& expression) {
  if (expression.match == Match::exists) return " /* exists */";
  if (expression.match == Match::absent) return " absent";
  struct Row {
    Match match;
    std::string_view before;
    std::string_view after = "";
  };
  constexpr std::array<Row, 8> kRows = {{{Match::equal, " = "},
                                         {Match::contains, " ~ "},
                                         {Match::beginsWith, " = ", "*"},
                                         {Match::endsWith, " = *"},
                                         {Match::less, " < "},
                                         {Match::greater, " > "},
                                         {Match::lessEqual, " <= "},
                                         {Match::greaterEqual, " >= "}}};
  const auto* row = std::ranges::find(kRows, expression.match, &Row::match);
  if (row == kRows.end()) return {};
  return std::string(row->before) + operandText(expression.matchValue) + std::string(row->after);
}

std::string textOf(const Expression& expression, Binding around);

std::string junctionText(const Expression& expression, std::string_view word, Binding own,
                         Binding around) {
  const std::string joined = textOf(expression.operands[0], own) + ' ' + std::string(word) + ' ' +
                             textOf(expression.operands[1], own);
  return own > around ? '(' + joined + ')' : joined;
}

std::string textOf(const Expression& expression, Binding around) {
  const std::string oid = foundation::DER::dotted(foundation::bytesOf(expression.key));
  switch (expression.operation) {
    case Operation::never:
      return "never";
    case Operation::always:
      return "always";
    case Operation::identifier:
      return "identifier " + operandText(expression.data);
    case Operation::anchorApple:
      return "anchor apple";
    case Operation::anchorAppleGeneric:
      return "anchor apple generic";
    case Operation::anchorHash:
      return certificateText(expression.certificate) + " = " + hashText(expression.data);
    case Operation::conjunction:
      return junctionText(expression, "and", Binding::conjunction, around);
    case Operation::disjunction:
      return junctionText(expression, "or", Binding::disjunction, around);
    case Operation::cdHash:
      return "cdhash " + hashText(expression.data);
    case Operation::negation:
      return "! " + textOf(expression.operands[0], Binding::primary);
    case Operation::infoKey:
      return "info[" + keyText(expression.key) + ']' + matchText(expression);
    case Operation::entitlement:
      return "entitlement[" + keyText(expression.key) + ']' + matchText(expression);
    case Operation::certificateField:
      return certificateText(expression.certificate) + '[' + keyText(expression.key) + ']' +
             matchText(expression);
    case Operation::certificateOID:
      return certificateText(expression.certificate) + "[field." + oid + ']' +
             matchText(expression);
    case Operation::certificatePolicy:
      return certificateText(expression.certificate) + "[policy." + oid + ']' +
             matchText(expression);
  }
  return {};
}

}  // namespace

std::string text(const Expression& expression) { return textOf(expression, Binding::disjunction); }

}  // namespace toolchain
