#pragma once

#include <functional>

/// Calls `run`, releases its temporary items, and returns its exit status. On SIGINT, SIGTERM or
/// SIGHUP it removes all of them instead, even those that the run would leave on purpose, prints a
/// line, and ends the process by that signal.
int runInterruptibly(const std::function<int()>& run);
