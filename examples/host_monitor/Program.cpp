#include "Program.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "ReadKey.h"

namespace demo {
namespace {

void PrintHelp(const char* program, const char* purpose, const std::vector<Option>& options) {
  std::printf("%s: %s\n\n", program, purpose);
  for (const Option& option : options) {
    std::printf("  --%-16s %s\n", option.name, option.help);
  }
}

/// One write for a whole line, so that the lines of two processes on one terminal do not mix.
void PrintLine(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

}  // namespace

bool ParseOptions(int argc, char** argv, const char* purpose, const std::vector<Option>& options) {
  std::vector<option> table;
  table.reserve(options.size() + 2);  // with --help and the end of the table
  for (const Option& entry : options) {
    table.push_back({entry.name, required_argument, nullptr, 'v'});
  }
  table.push_back({"help", no_argument, nullptr, 'h'});
  table.push_back({nullptr, 0, nullptr, 0});

  int index = 0;
  for (int found = 0; (found = getopt_long(argc, argv, "", table.data(), &index)) != -1;) {
    if (found == 'h') {
      PrintHelp(argv[0], purpose, options);
      return false;
    }
    if (found != 'v') {
      throw UsageError("see --help");  // getopt_long has said what is wrong
    }
    *options[static_cast<std::size_t>(index)].value = optarg;
  }
  if (optind < argc) {
    throw UsageError(std::string("unexpected argument: ") + argv[optind]);
  }
  return true;
}

int ParseNumber(const std::string& text, const std::string& what, int least, int most) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number < least || number > most) {
    throw UsageError(what + " must be a whole number from " + std::to_string(least) + " to " +
                     std::to_string(most));
  }
  return number;
}

std::string ReadSecret(const std::string& path) {
  return path.empty() ? "" : ReadKey(path);
}

void SetUpProcess(const char* programPath, const std::string& logRoot) {
  // A reader that closes our standard output ends the printing, not the process.
  std::signal(SIGPIPE, SIG_IGN);
  // The salts of signatures come from rand(), which the library leaves to the application to seed.
  std::srand(std::random_device{}());

  UTL_LOGSetWriteToStdout(false);
  UTL_LOGInit(programPath, logRoot.empty() ? nullptr : logRoot.c_str());
  UTL_LOGSetMax(4 * 524288);  // four files: by default a new run deletes the log of the one before
}

std::string Printable(const std::string& text, std::size_t most) {
  std::string shown = text.substr(0, most);
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  std::replace_if(shown.begin(), shown.end(), isControl, '.');
  return text.size() > most ? shown + "..." : shown;
}

Transcript::Transcript(const std::string& sender, const std::string& receiver, const std::string& outcomePath)
    : m_direction(sender + " -> " + receiver), m_receiver(receiver) {
  if (!outcomePath.empty()) {
    m_outcome.open(outcomePath, std::ios::app);
    if (!m_outcome) {
      throw UsageError("cannot write " + outcomePath);
    }
  }
}

void Transcript::Message(const std::string& kind, const std::string& verdict, const std::string& outcome,
                         const std::string& detail) {
  char head[128];
  std::snprintf(head, sizeof(head), "%-15s  %-24s  %-8s  ", m_direction.c_str(), Printable(kind, 40).c_str(),
                verdict.c_str());
  PrintLine(head + Printable(detail, 160) + "\n");
  // Flushed line by line: the verdicts must be there even when the process is killed afterwards.
  m_outcome << m_direction << ' ' << Printable(kind) << ' ' << verdict << ' ' << Printable(outcome)
            << std::endl;
}

void Transcript::Remark(const std::string& text) {
  PrintLine("   " + m_receiver + ": " + Printable(text, 200) + "\n");
}

}  // namespace demo
