/// @file
/// What an operation costs where counting is exact and no clock is needed: its system calls and its
/// allocations. Programs that include this link CostSupport.cpp too.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace costtest {

struct Cost {
  std::vector<std::string> calls;  ///< names of the system calls in order; one without a name is its number
  std::size_t allocations = 0;
};

/// Runs both in a fresh child process, one after the other, and counts what `operation` does. Ways to read
/// the clock and to guard against SIGPIPE are left out of the calls, as they depend on the kernel. Nothing
/// where processes must not be traced.
std::optional<Cost> CostOf(const std::function<void()>& prepare, const std::function<void()>& operation);

/// Allocations of `operation` in this process.
std::size_t AllocationsOf(const std::function<void()>& operation);

}  // namespace costtest
