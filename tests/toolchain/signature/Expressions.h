#pragma once

#include <string>
#include <vector>

#include "toolchain/signature/Requirement.h"

namespace test {

using toolchain::requirement::Expression;
using toolchain::requirement::Match;
using toolchain::requirement::Operation;

/// An operation with a text, a hash or nothing.
inline Expression leaf(Operation operation, std::string data = {}, std::int32_t certificate = 0) {
  return {.operation = operation, .certificate = certificate, .data = std::move(data)};
}

inline Expression joined(Operation operation, std::vector<Expression> operands) {
  return {.operation = operation, .operands = std::move(operands)};
}

/// An operation that looks up a key and compares its value.
inline Expression matching(Operation operation, std::string key, Match match = Match::exists,
                           std::string value = {}, std::int32_t certificate = 0) {
  return {.operation = operation,
          .certificate = certificate,
          .key = std::move(key),
          .match = match,
          .matchValue = std::move(value)};
}

}  // namespace test
