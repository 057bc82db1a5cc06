#pragma once

#include <functional>

/// Runs `run` and returns its exit status. When SIGINT, SIGTERM or SIGHUP comes meanwhile, what the
/// run has made in the temporary folder is removed, one line says so, and the process ends by that
/// signal instead.
int runInterruptibly(const std::function<int()>& run);
