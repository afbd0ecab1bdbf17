/// @file
/// What both programs of the demo share beside the transport: options, secrets, log lines, the transcript.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Utl_Log.h"

/// One line in the process log, with the place it comes from.
#define DEMO_LOG(level, ...) UTL_LOGPrint(level, __FILE__, __LINE__, __func__, __VA_ARGS__)

namespace demo {

/// A mistake on the command line; its text goes to the user.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// One option "--name VALUE": its value goes to `value`, which holds the default before.
struct Option {
  const char* name;
  std::string* value;
  const char* help;
};

/// Reads the command line. False when it asks for --help, which has been printed then.
/// @throws UsageError
bool ParseOptions(int argc, char** argv, const char* purpose, const std::vector<Option>& options);

/// A whole decimal number in the closed range, nothing before or behind it.
/// @throws UsageError that names `what`
int ParseNumber(const std::string& text, const std::string& what, int least, int most);

/// An access key, a ticket or a password: what ReadKey takes from the file; "" for an empty path.
/// @throws std::runtime_error that names the file, never what it holds
std::string ReadSecret(const std::string& path);

/// What every process that links the library does before anything else. Log lines go to files under `logRoot`
/// ("" for none); standard output is left to the transcript.
void SetUpProcess(const char* programPath, const std::string& logRoot);

/// `text` fit for a terminal: control bytes replaced, cut to `most` bytes. What a peer sent may hold escape
/// sequences that rewrite the screen.
std::string Printable(const std::string& text, std::size_t most = 96);

/// Prints one line for each message, by its receiver, who alone can judge it; and writes the verdict, one
/// line each and without anything that changes from run to run, to a file that a script can check.
class Transcript {
 public:
  Transcript(const std::string& sender, const std::string& receiver, const std::string& outcomePath);

  /// @param verdict a word such as "verified", "unsigned" or "refused"
  /// @param outcome what the message was about, the same in every run; @param detail goes to the reader only
  void Message(const std::string& kind, const std::string& verdict, const std::string& outcome,
               const std::string& detail);
  /// A remark of the receiver that belongs to no message.
  void Remark(const std::string& text);

 private:
  std::string m_direction;
  std::string m_receiver;
  std::ofstream m_outcome;
};

}  // namespace demo
