/// @file
/// Counts allocations exactly, where no clock is needed. Programs that include this link CostSupport.cpp too,
/// which stands in for the C library's allocator, as a sanitizer does: they go without one.
#pragma once

#include <cstddef>
#include <functional>

namespace costtest {

/// Allocations of `operation` in this process, those of other threads meanwhile included.
std::size_t AllocationsOf(const std::function<void()>& operation);

}  // namespace costtest
