/// @file
/// What a family of benchmarks declares: operations of the library, each beside the peers or floors that it
/// is held against. Comparison.cpp runs them, side by side or under Google Benchmark.
#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// One thing to be timed.
struct Subject {
  std::string name;
  std::function<void(std::size_t times)> run;  ///< does the operation so many times
  double units = 1;                            ///< what one operation counts for; times are given per unit
  std::function<void()> prepare = [] {};       ///< before a batch, not timed
  std::function<void()> finish = [] {};        ///< after a batch, not timed
};

/// Repeats `operation`; the call is inlined, so that operations of a nanosecond can be told apart.
template <typename Operation>
std::function<void(std::size_t)> Repeat(Operation operation) {
  return [operation](std::size_t times) {
    for (; times > 0; --times) operation();
  };
}

/// ours <= factor * peer + plusNs, and ours <= capNs.
struct Aim {
  double factor = std::numeric_limits<double>::infinity();
  double plusNs = 0;
  double capNs = std::numeric_limits<double>::infinity();
};

struct Opponent {
  Subject subject;
  std::optional<Aim> aim;  ///< none: shown for orientation
};

struct Row {
  std::string operation;
  Subject ours;
  std::vector<Opponent> opponents;
  std::size_t finer = 1;  ///< so many times as many rounds of batches that much shorter: for what a disk or
                          ///< the kernel makes drift within a batch
};

/// Defined by each family. What stands behind the subjects lives until the process ends.
std::string Family();
std::vector<Row> Rows();

/// Ends the program unless the two texts are equal: whoever is compared must do the same work.
void RequireSame(const std::string& what, const std::string& ours, const std::string& other);

}  // namespace bench
