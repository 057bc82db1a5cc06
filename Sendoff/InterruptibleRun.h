#pragma once

#include <functional>

/// Runs `run`, releases what it has made in the temporary folder, and returns its exit status. When
/// SIGINT, SIGTERM or SIGHUP comes before that end, all of it is removed, also what the run left
/// there on purpose, one line says so, and the process ends by that signal instead.
int runInterruptibly(const std::function<int()>& run);
