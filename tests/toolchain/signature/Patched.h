#pragma once

#include <functional>
#include <optional>

#include "tests/support/Test.h"
#include "toolchain/signature/Blobs.h"

namespace test {

/// One change to a sound blob, and what its reader says about it; empty: nothing.
struct Damage {
  const char* name;
  std::size_t offset;
  std::uint32_t value;
  std::string complaint;
  /// What the blob is first truncated or extended to.
  std::optional<std::size_t> size = std::nullopt;
};

/// `problemWith` reads a blob, and returns the error's text.
inline void expectComplaints(foundation::Bytes sound, const std::vector<Damage>& rows,
                             const std::function<std::string(foundation::Bytes)>& problemWith) {
  for (const Damage& row : rows) {
    toolchain::ByteWriter out;
    out.append(sound.first(std::min(sound.size(), row.size.value_or(sound.size()))));
    out.zeros(row.size.value_or(out.size()) - out.size());
    out.patch32(row.offset, row.value);
    const auto problem = problemWith(keepForFuzzing("SignatureBlobs", out.bytes()));
    EXPECT_THAT(problem, HasSubstr(row.complaint)) << row.name;
    EXPECT_EQ(problem.empty(), row.complaint.empty()) << row.name;
  }
}

}  // namespace test
