/// @file
/// Names checked against the built-in formats, and number items.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <regex.h>

#include <iomanip>
#include <sstream>

#include "BasePluginObject.h"
#include "Comparison.h"

namespace bench {

namespace {

struct Checked {
  const char* operation;
  const std::string& pattern;
  const char* text;
};

Row FormatRow(const Checked& checked) {
  const char* text = checked.text;
  const std::string pattern = checked.pattern;
  auto* compiled = new regex_t;  // used until the process ends
  regcomp(compiled, pattern.c_str(), REG_EXTENDED | REG_ICASE);
  const Subject ours = {"RegExMatch", Repeat([text, pattern] {
                          bool matches = CPluginUtil::RegExMatch(text, pattern, true);
                          benchmark::DoNotOptimize(matches);
                        })};
  const Subject whole = {"regcomp + regexec + regfree", Repeat([text, pattern] {
                           regex_t expression;
                           regmatch_t position;
                           regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_ICASE);
                           int result = regexec(&expression, text, 1, &position, 0);
                           benchmark::DoNotOptimize(result);
                           regfree(&expression);
                         })};
  const Subject matching = {"regexec", Repeat([text, compiled] {
                              regmatch_t position;
                              int result = regexec(compiled, text, 1, &position, 0);
                              benchmark::DoNotOptimize(result);
                            })};
  Aim aim;
  aim.capNs = 100;
  return {checked.operation, ours, {{whole, aim}, {matching, aim}}};
}

cJSON* BareItem(double value) {
  cJSON* item = cJSON_CreateObject();
  cJSON_AddStringToObject(item, "name", "temperature");
  cJSON_AddNumberToObject(item, "value", value);
  return item;
}

double RoundByStream(double value) {
  std::stringstream stream;
  stream << std::fixed << std::setprecision(2) << value;
  stream >> value;
  return value;
}

constexpr double kReading = 21.34567;

}  // namespace

std::string Family() {
  return "formats";
}

std::vector<Row> Rows() {
  const Subject item = {"number item", Repeat([] {
                          cJSON_Delete(CBasePluginObject::CreateBaseValueItemJson("temperature", kReading));
                        })};
  const Subject bare = {"bare item", Repeat([] { cJSON_Delete(BareItem(21.35)); })};
  const Subject stream = {"bare item + stream rounding",
                          Repeat([] { cJSON_Delete(BareItem(RoundByStream(kReading))); })};
  return {
      FormatRow({"name format", StringFormatter::nameFormat, "front-camera_2"}),
      FormatRow({"version format", StringFormatter::versionFormat, "12.0.451"}),
      FormatRow({"OTA command format", StringFormatter::otaCommand, "OTAv2_firmware"}),
      {"number item", item, {{bare, Aim{1.0, 100}}, {stream, std::nullopt}}},
  };
}

}  // namespace bench
