#include "CheckCommand.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>

#include "Input.h"
#include "JsonBuild_internal.h"
#include "RequestCheck.h"
#include "Subcommand.h"
#include "Terminal.h"

namespace {

using pluginsdk::internal::AddBool;
using pluginsdk::internal::AddNumber;
using pluginsdk::internal::AddString;
using pluginsdk::internal::Append;
using pluginsdk::internal::Attach;
using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::NewArray;
using pluginsdk::internal::NewObject;
using tool::Finding;
using tool::RequestVerdict;

constexpr tool::Words kWords = {
    "check", "Tell every fault of a request that a plugin sends",
    R"(FILE is a whole request or its params alone: a registration, a report of states, metrics or events, an
alert, an acknowledgement or a local command. Each line tells a place (JSON pointer), what is wrong, the
error number of the library where the rule is the library's, and line and column. Warnings are what the
library accepts, though it is unusual or not what it seems; they leave the exit status at 0.

Exit status: 0 no faults, 1 faults, 2 wrong arguments, unreadable or not JSON.

Example:
  echo '{"appName":"1st","type":"ib","appGUID":"a1","epoch":"0"}' | pluginsdk check)"};

// A value in a text may be as long as its sender liked.
constexpr std::size_t kShortEnough = 160;

std::size_t CountOf(const RequestVerdict& verdict, bool warnings) {
  return static_cast<std::size_t>(std::count_if(verdict.findings.begin(), verdict.findings.end(),
                                                [=](const Finding& f) { return f.isWarning == warnings; }));
}

std::string Counted(std::size_t count, const char* word) {
  return (count == 0 ? "no" : std::to_string(count)) + " " + word + (count == 1 ? "" : "s");
}

tool::Line LineOf(const Finding& finding, const tool::Page& page) {
  tool::Line line;
  if (finding.isWarning) line.push_back({"warning: ", tool::Style::kDoubtful});
  const std::string place = finding.pointer.empty() ? "(document)" : tool::Shown(finding.pointer, page.ascii);
  std::string text = tool::Shown(finding.complaint.text, page.ascii);
  if (tool::IsTerminal()) text = tool::Shortened(text, kShortEnough, page.ascii);
  if (finding.complaint.number != 0) text += " (" + std::to_string(finding.complaint.number) + ")";
  const std::string at =
      " [" + std::to_string(finding.position.line) + ":" + std::to_string(finding.position.column) + "]";
  line.push_back({place, finding.isWarning ? tool::Style::kPlain : tool::Style::kBad});
  line.push_back({": " + text, tool::Style::kPlain});
  line.push_back({at, tool::Style::kFaint});
  return line;
}

std::string SizeInWords(const RequestVerdict& verdict) {
  if (verdict.size == 0) return "";
  std::string words = "; " + std::to_string(verdict.size);
  if (verdict.limit) words += " of " + std::to_string(*verdict.limit);
  words += " bytes in indented printing";
  if (verdict.signedSize) words += ", " + std::to_string(*verdict.signedSize) + " when signed";
  return words;
}

void PrintLines(const RequestVerdict& verdict) {
  const tool::Page page{!tool::UseLocaleOfUser(), tool::MayColor(), {}};
  for (const Finding& finding : verdict.findings) {
    std::cout << tool::Rendered(LineOf(finding, page), page) << "\n";
  }
  const std::string method = tool::Shown(verdict.method, page.ascii);
  std::string what = "document";
  if (!method.empty()) what = verdict.isWhole ? method + " request" : "params of " + method;
  std::cout << what << ": " << Counted(CountOf(verdict, false), "fault") << ", "
            << Counted(CountOf(verdict, true), "warning") << SizeInWords(verdict) << "\n";
}

JsonPtr AnswerOf(const Finding& finding) {
  JsonPtr answer = NewObject();
  AddString(answer.get(), "pointer", finding.pointer);
  AddString(answer.get(), "text", finding.complaint.text);
  if (finding.complaint.number != 0) AddNumber(answer.get(), "number", finding.complaint.number);
  AddNumber(answer.get(), "line", static_cast<double>(finding.position.line));
  AddNumber(answer.get(), "column", static_cast<double>(finding.position.column));
  return answer;
}

JsonPtr AnswersOf(const RequestVerdict& verdict, bool warnings) {
  JsonPtr answers = NewArray();
  for (const Finding& finding : verdict.findings) {
    if (finding.isWarning == warnings) Append(answers.get(), AnswerOf(finding));
  }
  return answers;
}

JsonPtr SizeOf(const RequestVerdict& verdict) {
  JsonPtr size = NewObject();
  AddNumber(size.get(), "indented", static_cast<double>(verdict.size));
  if (verdict.signedSize) AddNumber(size.get(), "signed", static_cast<double>(*verdict.signedSize));
  if (verdict.limit) AddNumber(size.get(), "limit", static_cast<double>(*verdict.limit));
  return size;
}

void PrintJson(const RequestVerdict& verdict) {
  const JsonPtr answer = NewObject();
  AddBool(answer.get(), "valid", CountOf(verdict, false) == 0);
  AddString(answer.get(), "document", verdict.isWhole ? "request" : "params");
  if (!verdict.method.empty()) AddString(answer.get(), "method", verdict.method);
  if (!verdict.version.empty()) AddString(answer.get(), "apiVersion", verdict.version);
  if (verdict.size != 0) Attach(answer.get(), "size", SizeOf(verdict));
  Attach(answer.get(), "faults", AnswersOf(verdict, false));
  Attach(answer.get(), "warnings", AnswersOf(verdict, true));
  tool::PrintAnswer(answer.get());
}

ExitCode Run(const tool::CommonOptions& options) {
  const tool::Input input = tool::ReadInput(options.file);
  const JsonPtr document = tool::ParseInput(input);
  const RequestVerdict verdict = tool::CheckRequest(document.get(), input.text);
  if (options.json) {
    PrintJson(verdict);
  } else {
    PrintLines(verdict);
  }
  return CountOf(verdict, false) == 0 ? kDone : kVerdictNo;
}

}  // namespace

void AddCheckCommand(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<tool::CommonOptions>();
  tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
}
