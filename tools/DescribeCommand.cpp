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
    "FILE is a whole registration request or its params alone. Each module, group, item and parameter has "
    "one\n"
    "line, no wider than the terminal. Faults are not told: see pluginsdk check.\n"
    "Example:\n"
    "  echo '{\"appName\":\"Watcher\",\"modules\":[{\"moduleName\":\"camera\"}]}' | pluginsdk describe\n"
    "Exit status: 0 described, 1 not a registration, 2 wrong arguments, unreadable or not JSON."};

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

ExitCode Run(const Options& options) {
  const tool::Input input = tool::ReadInput(options.file);
  const JsonPtr document = tool::ParseInput(input);
  const tool::Page page = PageOf(options);
  std::string why;
  const cJSON* const params = tool::FindRegistration(document.get(), why);
  if (params == nullptr) {
    std::cerr << "pluginsdk describe: " << input.name
              << ": not a registration: " << tool::Shown(why, page.ascii) << "\n";
    return kVerdictNo;
  }
  if (options.json) {
    tool::PrintAnswer(tool::SummarizeModel(params).get());
  } else {
    std::cout << tool::RenderedTree(tool::DescribeModel(params, page.ascii), page);
  }
  return kDone;
}

}  // namespace

void AddDescribeCommand(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* describe =
      tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
  describe->add_option("--color", options->color, "auto: on a terminal, unless NO_COLOR is set")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  describe->add_option("--width", options->width, "columns of a line; else those of the terminal")
      ->check(CLI::PositiveNumber);
  describe->add_flag("--ascii", options->ascii, "only ASCII, other characters escaped; so too without UTF-8");
}
