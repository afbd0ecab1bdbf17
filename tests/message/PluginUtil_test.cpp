// Static helpers: files, members, classification, formats, random texts.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "BasePluginObject.h"
#include "JsonHandle_internal.h"

using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;

namespace {

class TemporaryFolder {
 public:
  TemporaryFolder() { EXPECT_NE(mkdtemp(m_path), nullptr); }
  ~TemporaryFolder() { EXPECT_EQ(std::system(("rm -r " + std::string(m_path)).c_str()), 0); }
  std::string Write(const char* name, const std::string& text) const {
    const std::string path = m_path + std::string("/") + name;
    std::ofstream(path) << text;
    return path;
  }
  const char* path() const { return m_path; }

 private:
  char m_path[32] = "/tmp/pluginutil_XXXXXX";
};

TEST(JsonFile, IsReadWholeOrAnsweredByNull) {
  const TemporaryFolder folder;
  const JsonPtr document(CPluginUtil::GetJsonFromFile(folder.Write("good", "{\"a\":[1,2]}\n")));
  ASSERT_NE(document, nullptr);
  EXPECT_STREQ(JsonText(cJSON_PrintUnformatted(document.get())).get(), "{\"a\":[1,2]}");
  EXPECT_EQ(CPluginUtil::GetJsonFromFile(folder.Write("bad", "{\"a\":")), nullptr);
  EXPECT_EQ(CPluginUtil::GetJsonFromFile(""), nullptr);

  testing::internal::CaptureStdout();
  EXPECT_EQ(CPluginUtil::GetJsonFromFile(folder.path() + std::string("/none")), nullptr);
  const std::string log = testing::internal::GetCapturedStdout();
  EXPECT_NE(log.find("!!WRN!!"), std::string::npos) << log;
  EXPECT_NE(log.find(":GetJsonFromFile| Cannot open " + std::string(folder.path()) + "/none\n"),
            std::string::npos)
      << log;
}

TEST(JsonFileDeathTest, UnreadableFilesEndTheProcess) {
  const TemporaryFolder folder;
  const std::string pipe = folder.path() + std::string("/pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int keepOpen = open(pipe.c_str(), O_RDWR);  // or else opening the pipe would wait for a writer
  for (const std::string& path : {folder.Write("empty", ""), std::string(folder.path()), pipe}) {
    EXPECT_EXIT(CPluginUtil::GetJsonFromFile(path), testing::ExitedWithCode(1), "^entire read fails$")
        << path;
  }
  close(keepOpen);
}

TEST(Members, AreReadByTypeAndWithoutRegardToCase) {
  const JsonPtr tree(cJSON_Parse(R"({"s":"text","n":5,"t":true,"f":false,"ts":"true","e":""})"));
  const struct {
    const char* key;
    const char* text;
    bool flag;
  } rows[] = {{"s", "text", false},  {"S", "text", false}, {"n", "", false},
              {"t", "", true},       {"T", "", true},      {"f", "", false},
              {"ts", "true", false}, {"none", "", false},  {"e", "", false}};
  for (const auto& row : rows) {
    EXPECT_EQ(CPluginUtil::GetJSONStringFieldValue(tree.get(), row.key), row.text) << row.key;
    EXPECT_EQ(CPluginUtil::GetJSONBooleanFieldValue(tree.get(), row.key), row.flag) << row.key;
  }
  EXPECT_EQ(CPluginUtil::GetJSONStringFieldValue(nullptr, "s"), "");
  EXPECT_FALSE(CPluginUtil::GetJSONBooleanFieldValue(nullptr, "t"));
}

TEST(Classification, TellsEveryKindOfMessage) {
  const struct {
    const char* text;
    const char* type;
    const char* extra;  // null: none
  } rows[] = {
      {nullptr, "others", nullptr},
      {"", "others", nullptr},
      {"not json", "others", nullptr},
      {"[1]", "others", nullptr},
      {"{}", "others", nullptr},
      {R"({"method":5})", "others", nullptr},
      {R"({"method":"v1/somethingElse"})", "others", nullptr},
      {R"({"method":"v2/notifyPluginCommand?authorization=x"})", "notifyPluginCommand", nullptr},
      {R"({"METHOD":"v1/notifyPluginCommandAck"})", "notifyPluginCommand", nullptr},
      {R"({"method":"notifyAgentEvent notifyPluginAlarmUpdate"})", "notifyPluginAlarmUpdate", nullptr},
      {R"({"method":"v1/notifyAgentEvent","params":{"serverConnectivity":"online"}})", "notifyAgentEvent",
       "{\n\t\"serverConnectivity\":\t\"online\"\n}"},
      {R"({"method":"v1/notifyAgentEvent","params":{"a":1}})", "notifyAgentEvent", nullptr},
      {R"({"method":"v1/notifyAgentEvent","params":"serverConnectivity"})", "notifyAgentEvent", nullptr},
      {R"({"method":"v1/notifyAgentEvent"})", "notifyAgentEvent", nullptr},
      {R"({"method":"v1/notifyPluginCommand","error":{"code":1}})", "error", "{\n\t\"code\":\t1\n}"},
      {R"({"error":null})", "error", "null"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text == nullptr ? "(null)" : row.text);
    std::string type = "before";
    const JsonText extra(CPluginUtil::GetMessageType(row.text, &type));
    EXPECT_EQ(type, row.type);
    EXPECT_EQ(extra ? std::string(extra.get()) : "none", row.extra ? row.extra : "none");
    EXPECT_EQ(JsonText(CPluginUtil::GetMessageType(row.text, nullptr)) != nullptr, row.extra != nullptr);
  }
  testing::internal::CaptureStdout();
  JsonText(CPluginUtil::GetMessageType(R"({"error":"e%s"})", nullptr));
  EXPECT_NE(
      testing::internal::GetCapturedStdout().find(":GetMessageType| Message type: error, error: \"e%s\"\n"),
      std::string::npos);
}

bool PosixVerdict(const char* text, const std::string& pattern) {
  regex_t expression;
  EXPECT_EQ(regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_ICASE), 0);
  const bool matches = regexec(&expression, text, 0, nullptr, 0) == 0;
  regfree(&expression);
  return matches;
}

// The formats of the vocabulary are matched by hand; the verdicts must be those of the C library.
TEST(Formats, VerdictsAreThoseOfPosix) {
  const std::string formats[] = {StringFormatter::nameFormat, StringFormatter::versionFormat,
                                 StringFormatter::otaCommand};
  std::vector<std::string> texts = {
      "",         "a",       "Abc",         "A-b_9",     "1abc",         "a b",      "a.b",
      "a\n",      "\n",      "-",           "1.2.3",     "1.2",          "1.2.3.4",  "1..3",
      "01.002.3", "1.2.3 ",  ".1.2",        "1.2.",      "OTAv1_",       "otav12_x", "OTAv_",
      "OTAv1",    "xOTAv1_", "OTA\xc5\xbf", "s\xc5\xbf", "\xe2\x84\xaa", "\xff",     "OTAv1_\xff"};
  std::mt19937 random(7);
  const std::string alphabet = "aZz09.._-OTAvotaV1_ \n\x80\xc5[";
  for (int i = 0; i < 20000; ++i) {
    std::string text(random() % 9, ' ');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    texts.push_back(text);
  }
  for (const std::string& format : formats) {
    for (const std::string& text : texts) {
      ASSERT_EQ(CPluginUtil::RegExMatch(text.c_str(), format, false), PosixVerdict(text.c_str(), format))
          << format << " on " << testing::PrintToString(text);
    }
  }
}

TEST(Formats, MismatchAndBadPatternAreLoggedOnce) {
  const struct {
    const char* name;
    const char* text;
    const char* pattern;
    bool logMismatch;
    bool matches;
    std::string log;  // after the function's name; empty: nothing
  } rows[] = {
      {"match", "a1", "^[a-z][0-9]$", true, true, ""},
      {"ignores case", "A1", "^[a-z][0-9]$", true, true, ""},
      {"anywhere", "xxabc", "b", true, true, ""},
      {"mismatch, silent", "abc", "^[0-9]+$", false, false, ""},
      {"mismatch, logged", "a%c", "^[0-9]+$", true, false, "\"a%c\" doesn't match to ^[0-9]+$ format.\n"},
      {"built-in mismatch", "1", "^[a-zA-Z][a-zA-Z0-9_-]*$", true, false,
       "\"1\" doesn't match to ^[a-zA-Z][a-zA-Z0-9_-]*$ format.\n"},
      {"bad pattern", "a", "(", false, false, "regexp comp error.\n"},
      {"null text", nullptr, ".*", false, false, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    testing::internal::CaptureStdout();
    EXPECT_EQ(CPluginUtil::RegExMatch(row.text, row.pattern, row.logMismatch), row.matches);
    const std::string log = testing::internal::GetCapturedStdout();
    if (row.log.empty()) {
      EXPECT_EQ(log, "");
    } else {
      EXPECT_EQ(log.substr(log.find("RegExMatch| ") + 12), row.log);
      EXPECT_EQ(log.find("!!WRN!!"), std::string("00:00:00.000000").size());
    }
  }
}

TEST(RandomText, HasItsLengthAndAlphabet) {
  for (const int length : {-1, 0, 1, 16, 4000}) {
    const std::string text = CPluginUtil::GenerateRandomString(length);
    EXPECT_EQ(text.size(), static_cast<std::size_t>(length < 0 ? 0 : length));
    for (const char c : text) EXPECT_TRUE(c >= ' ' && c <= '}') << static_cast<int>(c);
  }
  // The application's seed decides the sequence; within one second the text repeats.
  std::string first, second;
  do {
    const time_t before = time(nullptr);
    std::srand(5);
    first = CPluginUtil::GenerateRandomString(64);
    std::srand(5);
    second = CPluginUtil::GenerateRandomString(64);
    if (time(nullptr) == before) break;
  } while (true);
  EXPECT_EQ(first, second);
  EXPECT_NE(first, CPluginUtil::GenerateRandomString(64));
}

TEST(Integers, AreWrittenInDecimal) {
  char buffer[21];
  EXPECT_STREQ(CPluginUtil::Utilityltoa(std::numeric_limits<long>::min(), buffer), "-9223372036854775808");
  EXPECT_STREQ(CPluginUtil::Utilityltoa(0, buffer), "0");
  EXPECT_EQ(CPluginUtil::Utilityltoa(1, nullptr), nullptr);
}

}  // namespace
