// Static helpers: files, members, classification, formats, random texts.
#include <regex.h>
#include <sys/mman.h>
#include <unistd.h>

#include <limits>
#include <random>

#include "MessageTestSupport.h"

using namespace message_test;

namespace {

// The path of a file that ends with the process.
std::string FileWith(const std::string& text) {
  const int file = memfd_create("document", 0);
  EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  return "/proc/self/fd/" + std::to_string(file);
}

TEST(JsonFile, IsReadWholeOrAnsweredByNull) {
  const auto read = [](const std::string& path) { return JsonPtr(CPluginUtil::GetJsonFromFile(path)); };
  EXPECT_EQ(Printed(read(FileWith("{\"a\":[1,2]}\n")).get()), "{\"a\":[1,2]}");
  EXPECT_EQ(read(FileWith("{\"a\":")), nullptr);
  EXPECT_EQ(read(""), nullptr);
  const auto log = Logged([&] { EXPECT_EQ(read("/none"), nullptr); });
  EXPECT_EQ(log, std::vector<std::string>{"!!WRN!!|BasePluginObject:GetJsonFromFile| Cannot open /none"});
}

TEST(JsonFileDeathTest, UnreadableFilesEndTheProcess) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string pipePath = "/proc/self/fd/" + std::to_string(ends[0]);
  for (const std::string& path : {FileWith(""), std::string("/tmp"), pipePath})
    EXPECT_EXIT(CPluginUtil::GetJsonFromFile(path), testing::ExitedWithCode(1), "^entire read fails$")
        << path;
}

TEST(Members, AreReadByTypeAndWithoutRegardToCase) {
  const JsonPtr tree = Json(R"({"s":"text","n":5,"t":true,"f":false,"ts":"true"})");
  std::string read;
  for (const char* key : {"S", "n", "T", "f", "ts", "none"}) {
    read += CPluginUtil::GetJSONStringFieldValue(tree.get(), key) +
            (CPluginUtil::GetJSONBooleanFieldValue(tree.get(), key) ? "+" : "-");
  }
  EXPECT_EQ(read, "text--+-true--");
  EXPECT_EQ(CPluginUtil::GetJSONStringFieldValue(nullptr, "s"), "");
  EXPECT_FALSE(CPluginUtil::GetJSONBooleanFieldValue(nullptr, "t"));
}

TEST(Classification, TellsEveryKindOfMessage) {
  const struct {
    const char *text, *type;
    std::string extra{"(null)"};
  } rows[] = {
      {nullptr, "others"},
      {"not json", "others"},
      {R"({"METHOD":"v1/notifyPluginCommandAck"})", "notifyPluginCommand"},
      {R"({"method":"notifyAgentEvent notifyPluginAlarmUpdate"})", "notifyPluginAlarmUpdate"},
      {R"({"method":"v1/notifyAgentEvent","params":{"serverConnectivity":"online"}})", "notifyAgentEvent",
       "{\n\t\"serverConnectivity\":\t\"online\"\n}"},
      {R"({"method":"v1/notifyAgentEvent","params":{"a":1}})", "notifyAgentEvent"},
      {R"({"method":"v1/notifyAgentEvent","params":"serverConnectivity"})", "notifyAgentEvent"},
      {R"({"method":"v1/notifyPluginCommand","error":{"code":1}})", "error", "{\n\t\"code\":\t1\n}"},
      {R"({"error":null})", "error", "null"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text == nullptr ? "(null)" : row.text);
    std::string type = "before";
    const JsonText extra(CPluginUtil::GetMessageType(row.text, &type));
    EXPECT_EQ(type, row.type);
    EXPECT_EQ(extra ? extra.get() : "(null)", row.extra);
  }
  const auto log = Logged([] { JsonText(CPluginUtil::GetMessageType(R"({"error":"e%s"})", nullptr)); });
  const std::string line = R"( INFO  |BasePluginObject:GetMessageType| Message type: error, error: "e%s")";
  EXPECT_EQ(log, std::vector{line});
}

// The formats of the vocabulary are matched by hand; the verdicts must be those of the C library.
TEST(Formats, VerdictsAreThoseOfPosix) {
  std::vector<std::string> texts = {"",     "A-b_9",  "a\n",   "1.2.3",       "1.2.3.4",   "01.002.3",
                                    ".1.2", "OTAv1_", "OTAv_", "OTA\xc5\xbf", "s\xc5\xbf", "\xe2\x84\xaa"};
  std::mt19937 random(7);
  const std::string alphabet = "aZz09.._-OTAvotaV1_ \n\x80\xc5[";
  for (int i = 0; i < 20000; ++i)
    for (char& c : texts.emplace_back(random() % 9, ' ')) c = alphabet[random() % alphabet.size()];
  for (const std::string& format :
       {StringFormatter::nameFormat, StringFormatter::versionFormat, StringFormatter::otaCommand}) {
    regex_t expression;
    ASSERT_EQ(regcomp(&expression, format.c_str(), REG_EXTENDED | REG_ICASE), 0);
    for (const std::string& text : texts) {
      EXPECT_EQ(CPluginUtil::RegExMatch(text.c_str(), format, false),
                regexec(&expression, text.c_str(), 0, nullptr, 0) == 0)
          << format << " on " << testing::PrintToString(text);
    }
    regfree(&expression);
  }
}

TEST(Formats, MismatchAndBadPatternAreLoggedOnce) {
  const auto log = Logged([] {
    EXPECT_TRUE(CPluginUtil::RegExMatch("A1", "^[a-z][0-9]$", true));
    EXPECT_FALSE(CPluginUtil::RegExMatch("abc", "^[0-9]+$", false));
    EXPECT_FALSE(CPluginUtil::RegExMatch("a%c", "^[0-9]+$", true));
    EXPECT_FALSE(CPluginUtil::RegExMatch("a", "(", false));
    EXPECT_FALSE(CPluginUtil::RegExMatch(nullptr, ".*", false));
  });
  const std::string start = "!!WRN!!|BasePluginObject:RegExMatch| ";
  EXPECT_EQ(
      log, (std::vector{start + R"("a%c" doesn't match to ^[0-9]+$ format.)", start + "regexp comp error."}));
}

TEST(Texts, RandomAndDecimal) {
  const std::string text = CPluginUtil::GenerateRandomString(4000);
  EXPECT_EQ(text.size(), 4000U);
  for (const char c : text) EXPECT_TRUE(c >= ' ' && c <= '}') << static_cast<int>(c);
  EXPECT_NE(text, CPluginUtil::GenerateRandomString(4000));
  EXPECT_EQ(CPluginUtil::GenerateRandomString(0) + CPluginUtil::GenerateRandomString(-1), "");
  char buffer[21];
  EXPECT_STREQ(CPluginUtil::Utilityltoa(std::numeric_limits<long>::min(), buffer), "-9223372036854775808");
  EXPECT_EQ(CPluginUtil::Utilityltoa(1, nullptr), nullptr);
}

}  // namespace
