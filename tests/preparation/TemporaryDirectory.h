#pragma once

#include "tests/support/Test.h"

namespace test {

/// The temporary directory of the code under test, for one scope.
class TemporaryDirectory : public TemporaryFolder {
 private:
  ScopedEnvironment environment_{"TMPDIR", path().c_str()};
};

}  // namespace test
