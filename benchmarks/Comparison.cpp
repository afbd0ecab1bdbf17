/// @file
/// The main function of every benchmark program.
///
///   <program> [Google Benchmark's options]
///   <program> --side-by-side [--rounds=N] [--batch-ms=N] [--filter=TEXT]
///
/// Side by side, each operation and its opponents take turns, one batch each, round after round, so that
/// whatever else the machine does hits all of them alike. One JSON object a line comes out for each pair.
#include "Comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace bench {

void RequireSame(const std::string& what, const std::string& ours, const std::string& other) {
  if (ours == other) return;
  std::fprintf(stderr, "%s differs:\n%s\n%s\n", what.c_str(), ours.c_str(), other.c_str());
  std::exit(EXIT_FAILURE);
}

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  bool sideBySide = false;
  std::size_t rounds = 15;
  double batchMs = 30;
  std::string filter;
};

double NanosecondsOf(const Subject& subject, std::size_t times) {
  const auto begin = Clock::now();
  subject.run(times);
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

/// Per unit; the whole batch with its preparation.
double TimeBatch(const Subject& subject, std::size_t times) {
  subject.prepare();
  const double total = NanosecondsOf(subject, times);
  subject.finish();
  return total / static_cast<double>(times) / subject.units;
}

/// How often `subject` must be run to fill `targetMs`.
std::size_t TimesFor(const Subject& subject, double targetMs) {
  const double target = targetMs * 1e6;
  std::size_t times = 1;
  subject.prepare();
  for (;;) {
    const double taken = NanosecondsOf(subject, times);
    if (taken >= target / 2) {
      times = static_cast<std::size_t>(std::ceil(static_cast<double>(times) * target / taken));
      break;
    }
    times *= taken < target / 20 ? 10 : 2;
  }
  subject.finish();
  return times;
}

double Quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double position = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (values[above] - values[below]) * (position - std::floor(position));
}

std::string Number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Duration(double ns) {
  if (ns >= 1e6) return Number("%.3g ms", ns / 1e6);
  if (ns >= 1e3) return Number("%.3g us", ns / 1e3);
  return Number("%.3g ns", ns);
}

std::string AimText(const Aim& aim) {
  std::string text;
  if (std::isfinite(aim.factor)) {
    text = aim.factor < 0.5 ? "1/" + Number("%.3g x", 1 / aim.factor) : Number("%.3g x", aim.factor);
    if (aim.plusNs > 0) text += " + " + Duration(aim.plusNs);
  }
  if (std::isfinite(aim.capNs)) text += (text.empty() ? "" : ", ") + Duration(aim.capNs);
  return "<= " + text;
}

double LimitOf(const Aim& aim, double peer) {
  return std::min(std::isfinite(aim.factor) ? aim.factor * peer + aim.plusNs : aim.capNs, aim.capNs);
}

void PrintPair(const Row& row, const Opponent& opponent, const std::vector<double>& ours,
               const std::vector<double>& peer) {
  std::vector<double> ratios(ours.size());
  std::transform(ours.begin(), ours.end(), peer.begin(), ratios.begin(), std::divides<>());
  const double ourMedian = Quantile(ours, 0.5);
  const double peerMedian = Quantile(peer, 0.5);
  std::string aim = R"("aim":null,"limit_ns":null,"met":null)";
  if (opponent.aim) {
    const double limit = LimitOf(*opponent.aim, peerMedian);
    aim = R"("aim":")" + AimText(*opponent.aim) + R"(","limit_ns":)" + Number("%.4g", limit) + R"(,"met":)" +
          (ourMedian <= limit ? "true" : "false");
  }
  std::printf(
      R"({"family":"%s","operation":"%s","ours":"%s","peer":"%s","ours_ns":%.5g,"peer_ns":%.5g,"ratio":%.4g,)"
      R"("ratio_low":%.4g,"ratio_high":%.4g,%s})"
      "\n",
      Family().c_str(), row.operation.c_str(), row.ours.name.c_str(), opponent.subject.name.c_str(),
      ourMedian, peerMedian, ourMedian / peerMedian, Quantile(ratios, 0.25), Quantile(ratios, 0.75),
      aim.c_str());
  std::fflush(stdout);
}

void CompareRow(const Row& row, const Options& options) {
  std::vector<const Subject*> subjects = {&row.ours};
  for (const Opponent& opponent : row.opponents) subjects.push_back(&opponent.subject);
  std::vector<std::size_t> times;
  for (const Subject* subject : subjects) {
    times.push_back(TimesFor(*subject, options.batchMs / static_cast<double>(row.finer)));
  }

  const std::size_t rounds = options.rounds * row.finer;
  std::vector<std::vector<double>> results(subjects.size(), std::vector<double>(rounds));
  for (std::size_t round = 0; round < rounds; ++round) {
    for (std::size_t turn = 0; turn < subjects.size(); ++turn) {
      // Every second round runs backwards: whoever follows a costly neighbour also precedes it.
      const std::size_t i = round % 2 == 0 ? turn : subjects.size() - 1 - turn;
      results[i][round] = TimeBatch(*subjects[i], times[i]);
    }
  }
  for (std::size_t i = 0; i < row.opponents.size(); ++i) {
    PrintPair(row, row.opponents[i], results[0], results[i + 1]);
  }
}

void Register(const Row& row, const Subject& subject) {
  benchmark::RegisterBenchmark((row.operation + "/" + subject.name).c_str(), [subject](
                                                                                 benchmark::State& state) {
    const std::size_t times = TimesFor(subject, 0.1);
    subject.prepare();
    while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(times))) subject.run(times);
    subject.finish();
    state.SetItemsProcessed(
        static_cast<std::int64_t>(static_cast<double>(state.iterations()) * subject.units));
  })->UseRealTime();
}

bool TakeValue(std::string_view argument, std::string_view name, std::string& value) {
  if (argument.substr(0, name.size()) != name) return false;
  value = argument.substr(name.size());
  return true;
}

Options ReadOptions(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; ++i) {
    std::string value;
    if (TakeValue(arguments[i], "--rounds=", value)) options.rounds = std::max(1UL, std::stoul(value));
    if (TakeValue(arguments[i], "--batch-ms=", value)) options.batchMs = std::stod(value);
    TakeValue(arguments[i], "--filter=", options.filter);
    options.sideBySide |= std::string_view(arguments[i]) == "--side-by-side";
  }
  return options;
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments) {
  const bench::Options options = bench::ReadOptions(count, arguments);
  const std::vector<bench::Row> rows = bench::Rows();
  if (options.sideBySide) {
    for (const bench::Row& row : rows) {
      if (row.operation.find(options.filter) != std::string::npos) bench::CompareRow(row, options);
    }
    return 0;
  }
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  for (const bench::Row& row : rows) {
    bench::Register(row, row.ours);
    for (const bench::Opponent& opponent : row.opponents) bench::Register(row, opponent.subject);
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
