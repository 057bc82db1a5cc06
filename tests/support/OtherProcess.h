#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

namespace test {

/// Runs `work` in a child process of this one, with its own copy of everything, and returns the
/// text that `work` returned. A child that ends otherwise gives "child ended with status N". Checks
/// of the test framework made in the child are not seen; return what is to be checked.
std::string inChildProcess(const std::function<std::string()>& work);

/// A user without rights and without an entry in the user database.
inline constexpr uid_t kUnprivilegedUser = 54321;

/// The same, as that user. The tests may run as root, for whom no permission is ever denied. Where
/// this process may not change its user, the child runs as the same user.
std::string asUnprivilegedUser(const std::function<std::string()>& work);

}  // namespace test
