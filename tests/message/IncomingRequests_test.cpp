// The agent's commands and alarm updates: which are trusted, what is read from them, hostile texts.
#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>

#include "MessageTestSupport.h"

using namespace message_test;

namespace {

const std::string kBody = R"({"jsonrpc":"2.0", "params":{"commandId":"77","x":1}, "method":"@"})";

// `body` signed with "key": '@' stands for the method value, of which `tail` follows the signed part.
std::string Signed(const std::string& body, const std::string& method, const std::string& tail = "") {
  std::string digest;
  std::string signature = "v1";
  CPluginUtil::GetSignDigest(Replaced(body, "@", method), &digest);
  // A signature that holds a version by chance would decide how its text is treated.
  while (signature.find("v1") != std::string::npos || signature.find("v2") != std::string::npos)
    CPluginUtil::GetSignature(digest, "key", &signature);
  return Replaced(body, "@", method + tail + "?authorization=" + signature);
}

enum Outcome { kSilent, kRefused, kTrusted, kThrows };

template <typename Parser, typename... Limits>
Outcome Try(const char* text, const char* key, const Limits&... limits) {
  try {
    return Parser(text, key, limits...).m_validSignature ? kTrusted : kRefused;
  } catch (const std::out_of_range& e) {
    return std::strstr(e.what(), "basic_string::replace") != nullptr ? kThrows : kSilent;
  }
}

TEST(IncomingRequests, BothParsersTrustTheSameTexts) {
  const std::string good = Signed(kBody, "v2/notifyPluginCommand");
  const auto body = [](const char* method) { return Replaced(kBody, "@", method); };
  const struct {
    const char* name;
    std::string text;
    const char* key;
    Outcome outcome;
  } rows[] = {
      {"v1 anywhere, any tail", body("/v2/xv1?authorization=zzz"), "key", kTrusted},
      {"v1 without a key", body("v1/x"), "", kTrusted},
      {"signed", good, "key", kTrusted},
      {"signed in indented printing", Signed(Printed(Json(kBody).get(), false), "v2/x"), "key", kTrusted},
      {"keys in other letter case", Signed(R"({"PARAMS":1,"Method":"@"})", "v2/x"), "key", kTrusted},
      {"two question marks", Signed(kBody, "v2/x", "?a=b"), "key", kTrusted},
      {"two markers", Signed(kBody, "v2/x", "?authorization=zzz"), "key", kTrusted},
      {"no key", good, "", kRefused},
      {"other key", good, "other", kRefused},
      {"unknown version", Signed(kBody, "V2/x"), "key", kRefused},
      {"empty signature", body("v2/x?authorization="), "key", kRefused},
      {"one byte changed", Replaced(good, "77", "76"), "key", kRefused},
      {"one blank more", good + " ", "key", kRefused},
      {"no params", R"({"method":"v1/x"})", "", kSilent},
      {"not JSON", R"({"params":{},"method":"v1)", "", kSilent},
      {"escaped slash", Replaced(good, "v2/", "v2\\/"), "key", kThrows},
  };
  const VerificationLimits limits;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const char* text = row.text.c_str();
    const Outcome verdict = row.outcome == kSilent ? kRefused : row.outcome;
    EXPECT_EQ(Logged([&] { EXPECT_EQ(Try<CAlarmUpdatePluginJson>(text, row.key), verdict); }).size(), 0U);
    const std::size_t lines[] = {0, 1, 4, 0};  // of a command, by outcome
    EXPECT_EQ(Logged([&] { EXPECT_EQ(Try<CCommandPluginJson>(text, row.key), verdict); }).size(),
              lines[row.outcome]);
    // Within limits that admit the system's own signatures, only unsigned texts lose their trust.
    const bool isUnsigned = row.text.find("v1") != std::string::npos && *row.key != '\0';
    EXPECT_EQ(Try<CAlarmUpdatePluginJson>(text, row.key, limits), isUnsigned ? kRefused : verdict);
  }
  using Limits = VerificationLimits;
  for (const Limits& tight : {Limits{63, 16, 8, 74}, {64, 15, 8, 74}, {64, 16, 7, 74}, {64, 16, 8, 73}})
    EXPECT_EQ(Try<CCommandPluginJson>(good.c_str(), "key", tight), kRefused);
  EXPECT_EQ(Try<CCommandPluginJson>(Signed(kBody, "v2/v1").c_str(), "key", limits), kTrusted);
  EXPECT_EQ(Try<CCommandPluginJson>(nullptr, "key"), kRefused);
  EXPECT_EQ(Try<CAlarmUpdatePluginJson>(nullptr, "key"), kRefused);
}

TEST(IncomingCommands, FieldsAreReadWhereTheyHaveTheirType) {
  const std::pair<const char*, std::array<std::string, 3>> rows[] = {
      {R"({"MODULENAME":"a","commandid":"b","CommandSource":"c","COMMANDS":[]})", {"b", "c", "a"}},
      {R"({"commandId":7,"commandSource":null,"moduleName":[],"commands":{"a":1}})", {}},
      {R"("commandId")", {}}};
  for (const auto& [params, read] : rows) {
    const auto lines = Logged([text = Replaced(R"({"method":"v1","params":@})", "@", params)] {
      EXPECT_TRUE(CCommandPluginJson(text.c_str(), "").m_commands.empty());
    });
    const std::string start = " INFO  |CommandAcksPluginJson:ValidateCommands| ";
    EXPECT_EQ(lines,
              (std::vector{start + "is valid signature? 1", start + "m_commandId: " + read[0],
                           start + "m_commandSource: " + read[1], start + "m_moduleName: " + read[2]}));
  }
}

// Against the slow way that defines the result: print each command and parse the text.
TEST(IncomingCommands, AreWhatTheirPrintingReads) {
  std::string list = R"([-0],[-0.0],[1e400],[-1e400],[5e-324],[1e-400],[0.30000000000000004],[2147483648],)"
                     R"([1.7976931348623157e308],[-1.7976931348623157e308],["\u0001\"\\\/\ud83d\ude00"])";
  std::mt19937_64 random(20240229);
  for (int i = 0; i < 30000; ++i) {  // short decimals, their neighbours, and of any size
    double value = static_cast<double>(random() % 2000000) / 1000;
    if (i % 3 == 1) value = std::nextafter(value, DBL_MAX);
    if (i % 3 == 2) value = std::ldexp(value, static_cast<int>(random() % 2000) - 1000);
    char text[40];
    std::snprintf(text, sizeof text, ",{\"n\":%.17g}", value);
    list += text;
  }
  const CCommandPluginJson parsed((R"({"params":{"commands":[)" + list + R"(]},"method":"v1"})").c_str(), "");
  const JsonPtr original = Json("[" + list + "]");
  auto command = parsed.m_commands.begin();
  for (const cJSON* element : pluginsdk::internal::Children(original.get())) {
    const JsonPtr expected = Json(Printed(element, false));
    const cJSON* a = (*command)->child;
    const cJSON* b = expected->child;
    ASSERT_EQ(a->valueint, b->valueint) << Printed(element);
    ASSERT_EQ(std::memcmp(&a->valuedouble, &b->valuedouble, sizeof(double)), 0) << Printed(element);
    ASSERT_EQ(Printed(*command++), Printed(expected.get()));
  }
}

TEST(IncomingAlarms, QueriesFindModulesByTheirWholeName) {
  const struct {
    const char *module, *alarms, *epoch;
  } rows[] = {{"cam", "123", "100"}, {"Cam", "", ""}, {"door", "7", ""}, {"", "8", ""}, {"ca", "", nullptr}};
  for (const std::string modules :
       {R"([{"moduleName":"cam","epoch":"100","alarms":[1,2]},{"moduleName":"cam","epoch":"200","alarms":[3]},
            {"moduleName":"Cam","alarms":[]},{"MODULENAME":"door","EPOCH":300,"ALARMS":{"k":7}},{"alarms":[8]}])",
        R"({"a":{"moduleName":"cam","epoch":"100","alarms":[1]},"a":{"moduleName":"cam","alarms":[2,3]},
            "b":{"moduleName":"Cam","alarms":0},"c":{"moduleName":"door","alarms":[7]},"e":{"alarms":[8]}})"}) {
    const std::string text = R"({"method":"v1","params":{"Version":"2","modules":)" + modules + "}}";
    const CAlarmUpdatePluginJson update(text.c_str(), "");
    EXPECT_TRUE(update.m_alarmVersion == "2" && update.m_modules.size() == 5);
    for (const auto& row : rows) {
      std::string alarms;
      for (const cJSON* alarm : update.GetAlarms(row.module)) alarms += Printed(alarm);
      EXPECT_EQ(alarms, row.alarms) << row.module;
      EXPECT_STREQ(update.GetAlarmsUpdateEpochTime(row.module), row.epoch) << row.module;
    }
  }
  EXPECT_TRUE(CAlarmUpdatePluginJson(R"({"method":"v1","params":{"modules":"x"}})", "").m_modules.empty());
}

}  // namespace
