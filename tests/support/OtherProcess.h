#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>
#include <unistd.h>

namespace test {

/// Replaces this process by a program that writes both its outputs to the descriptor.
[[noreturn]] void become(const std::vector<std::string>& arguments, int output);

/// Standard output and standard error of a command; throws with them unless it succeeds.
std::string outputOf(const std::vector<std::string>& arguments);

/// Runs `work` in a forked child and returns its text, or "child ended with status N". Expectations
/// in the child are not seen; return what is to be checked.
std::string inChildProcess(const std::function<std::string()>& work);

/// A user without rights and without an entry in the user database; each test program has its own.
inline const uid_t kUnprivilegedUser = 20'000 + static_cast<uid_t>(::getpid()) % 40'000;
/// Runs `work` as that user, since tests may run as root, who is never denied a permission. If this
/// process may not change its user, the child runs as the current one.
std::string asUnprivilegedUser(const std::function<std::string()>& work);

/// How many descriptors and threads this process has.
std::size_t openDescriptors();
std::size_t threadCount();

}  // namespace test
