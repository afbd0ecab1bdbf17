#include "RingCommand.h"

#include <chrono>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "RingReader.h"
#include "RingSegment.h"

namespace {

using ringtool::HeaderVerdict;
using ringtool::Reading;
using ringtool::RingSegment;

constexpr std::chrono::milliseconds kBetweenReadings(100);

struct Options {
  int id = 0;
  std::string file;
  bool list = false;
  bool follow = false;
  bool salvage = false;
};

// Marks the front line where it is cut, and ends the last line where its end is missing.
void PrintLines(std::string_view lines, bool frontCut) {
  if (lines.empty()) {
    return;
  }
  std::cout << (frontCut ? "[cut] " : "") << lines << (lines.back() == '\n' ? "" : "\n") << std::flush;
}

std::string Amounts(const pluginsdk::ring::State& state) {
  const std::string atLeast = state.bytesStored == INT32_MAX ? "at least " : "";
  std::string text =
      ", " + atLeast + std::to_string(state.bytesStored) + " bytes stored since the last flush";
  if (state.wrapped == 1) {
    const auto lost = static_cast<std::uint32_t>(state.bytesStored) - pluginsdk::ring::kCapacity;
    text += ", the oldest " + atLeast + std::to_string(lost) + " overwritten";
  }
  return text;
}

std::string Summary(const Reading& reading) {
  return "header " + std::string(ringtool::Describe(reading.verdict)) +
         (reading.verdict == HeaderVerdict::kConsistent ? Amounts(reading.state) : "");
}

// Prints what comes until the segment is removed or we are interrupted.
void Follow(const RingSegment& segment, Reading previous) {
  while (!segment.Removed()) {
    std::this_thread::sleep_for(kBetweenReadings);
    Reading current = ringtool::ReadRing(segment.Bytes());
    if (current.verdict != HeaderVerdict::kConsistent) {
      continue;  // a flush under way, a process that died while storing, or the end
    }
    const ringtool::Fresh fresh = ringtool::FreshSince(previous, current);
    if (fresh.flushed) {
      std::cout << "[flushed to the log file]" << std::endl;
    }
    if (fresh.missed > 0) {
      std::cout << "[" << fresh.missed << " bytes came and went unseen]" << std::endl;
    }
    PrintLines(fresh.bytes, current.frontCut && fresh.bytes.size() == current.contents.size());
    previous = std::move(current);
  }
  std::cout << "[in-memory logging was turned off]\n";
}

ExitCode List() {
  const std::vector<std::string> names = ringtool::ListSegments();
  if (names.empty()) {
    std::cout << "No in-memory logs on this machine.\n";
  }
  for (const std::string& name : names) {
    const RingSegment segment = RingSegment::OfName(name);
    std::cout << std::left << std::setw(24) << name
              << (segment.Bytes() == nullptr ? segment.Problem()
                                             : Summary(ringtool::ReadRing(segment.Bytes())))
              << "\n";
  }
  return kDone;
}

ExitCode Show(const std::string& name, const RingSegment& segment, const Options& options) {
  if (segment.Bytes() == nullptr) {
    std::cerr << name << ": " << segment.Problem() << "\n";
    return segment.TooShort() ? kVerdictNo : kCannotRun;
  }
  const Reading reading = ringtool::ReadRing(segment.Bytes());
  std::cout << name << ": " << Summary(reading) << "\n" << std::flush;
  if (options.salvage) {
    PrintLines(ringtool::Salvage(segment.Bytes()), true);
  } else {
    PrintLines(reading.contents, reading.frontCut);
  }
  if (reading.verdict != HeaderVerdict::kConsistent) {
    return kVerdictNo;
  }
  if (options.follow) {
    Follow(segment, reading);
  }
  return kDone;
}

ExitCode Run(const Options& options) {
  if (options.list) {
    return List();
  }
  if (!options.file.empty()) {
    return Show(options.file, RingSegment::OfFile(options.file), options);
  }
  const std::string name = ringtool::SegmentName(options.id);
  return Show(name, RingSegment::OfName(name), options);
}

}  // namespace

void AddRingCommand(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* ring = app.add_subcommand("ring", "Print the in-memory log of a process, alive or dead");
  ring->footer(
      "The first line says whether the header is consistent; the stored lines follow, oldest first. [cut]\n"
      "marks a first line whose beginning was overwritten. Nothing is changed in the segment.\n"
      "Exit status: 0 consistent, 1 not consistent, 2 wrong arguments or no such segment or file.\n"
      "\n"
      "Example:\n"
      "  pluginsdk ring --list");

  CLI::App* what = ring->add_option_group("what to read");
  what->add_option("id", options->id, "identifier given to UTL_LOGSetEnableInMemoryLogging");
  CLI::Option* file = what->add_option("--file", options->file, "a saved copy of a segment");
  CLI::Option* list = what->add_flag("--list", options->list, "one line for each segment on this machine");
  what->require_option(1);
  ring->add_flag("--follow", options->follow, "go on printing lines as they come")
      ->excludes(file)
      ->excludes(list);
  ring->add_flag("--salvage", options->salvage,
                 "print all bytes that the ring holds, whatever the header says: lines may be torn, or older "
                 "than the last flush")
      ->excludes(list);
  ring->callback([options, &exitCode] { exitCode = Run(*options); });
}
