#include "DescribeCommand.h"

#include <iostream>
#include <memory>
#include <string>

#include "Input.h"
#include "JsonBuild_internal.h"
#include "ModelTree.h"
#include "Subcommand.h"
#include "Terminal.h"

namespace {

using pluginsdk::internal::JsonPtr;

constexpr tool::Words kWords = {
    "describe", "Show the model that a registration declares as a tree",
    R"(FILE is a whole registration request or its params alone. Each module, group, item and parameter has one
line, no wider than the terminal, or than COLUMNS says when the terminal does not tell; where output is no
terminal, it may have any length. Faults are not told: see pluginsdk check.

Exit status: 0 described, 1 not a registration (--json answers with "registration" false and a "reason"),
2 wrong arguments, unreadable or not JSON.

Example:
  echo '{"appName":"Watcher","modules":[{"moduleName":"camera"}]}' | pluginsdk describe)"};

struct Options : tool::CommonOptions {
  std::string color = "auto";
  std::size_t width = 0;  // as wide as the terminal
  bool ascii = false;
};

tool::Page PageOf(const Options& options) {
  tool::Page page;
  page.ascii = !tool::UseLocaleOfUser() || options.ascii;
  page.colors = options.color == "always" || (options.color == "auto" && tool::MayColor());
  page.columns = options.width == 0 ? tool::ColumnsOfUser() : std::optional(options.width);
  return page;
}

ExitCode TellAbsence(const Options& options, const std::string& name, const std::string& why, bool ascii) {
  if (options.json) {
    tool::PrintAnswer(tool::SummarizeAbsence(why).get());
  } else {
    std::cerr << "pluginsdk describe: " << name << ": not a registration: " << tool::Shown(why, ascii)
              << "\n";
  }
  return kVerdictNo;
}

ExitCode Run(const Options& options) {
  const tool::Input input = tool::ReadInput(options.file);
  const JsonPtr document = tool::ParseInput(input);
  const tool::Page page = PageOf(options);
  std::string why;
  const cJSON* const params = tool::FindRegistration(document.get(), why);
  if (params == nullptr) return TellAbsence(options, input.name, why, page.ascii);
  if (options.json) {
    tool::PrintAnswer(tool::SummarizeModel(params).get());
  } else {
    std::cout << tool::RenderedTree(tool::DescribeModel(params, page.ascii), page);
  }
  return kDone;
}

// Validators see the text as it was typed, of whatever length.
std::string AgainstWidth(const std::string& text) {
  constexpr std::size_t kMost = 10000;  // wider than any terminal
  constexpr std::size_t kMostDigits = 5;
  const bool isNumber = !text.empty() && text.size() <= kMostDigits &&
                        text.find_first_not_of("0123456789") == std::string::npos;
  const std::size_t width = isNumber ? std::stoul(text) : 0;
  return width >= 1 && width <= kMost ? "" : "must be 1 to " + std::to_string(kMost);
}

}  // namespace

void AddDescribeCommand(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* describe =
      tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
  describe->add_option("--color", options->color, "auto: on a terminal, unless NO_COLOR is set")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  describe->add_option("--width", options->width, "columns of a line, 1 to 10000; else those of the terminal")
      ->check(AgainstWidth);
  describe->add_flag("--ascii", options->ascii, "only ASCII, other characters escaped; so too without UTF-8");
}
