// Masking: what a secret leaves behind, in the text and in the buffer.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>
#include <vector>

#include "LogTestSupport.h"
#include "Utl_Log.h"

namespace {

struct MaskCase {
  const char* name;
  const char* text;
  const char* key;
  const char* terminator;
  const char* expected;
};

constexpr MaskCase kMaskCases[] = {
    {"value up to the terminator", "user: bob\npw: secret\nmore", "pw: ", "\n", "user: bob\npw: *\nmore"},
    {"value of one byte", "pw: s\n", "pw: ", "\n", "pw: *\n"},
    {"no terminator drops the rest", "a pw: secret and more", "pw: ", "\n", "a pw: *"},
    {"one byte without terminator", "pw: s", "pw: ", "\n", "pw: *"},
    {"empty value", "pw=&pw=x&", "pw=", "&", "pw=&pw=*&"},
    {"key at the very end", "pw=abc&pw=", "pw=", "&", "pw=*&pw="},
    {"every occurrence", "pw=abc&x&pw=defg&pw=h", "pw=", "&", "pw=*&x&pw=*&pw=*"},
    {"case counts", "PW=abc&", "pw=", "&", "PW=abc&"},
    {"the value may hold the key", "pw=pw=pw=&pw=a&", "pw=", "&", "pw=*&pw=*&"},
    {"key begins with the terminator", ",k=a,k=b,k=c", ",k=", ",", ",k=*,k=*,k=*"},
    {"key begins with the terminator's end", R"(,"k":"ab","k":"cd",)", R"(,"k":")", R"(",)",
     R"(,"k":"*","k":"*",)"},
    {"key is the terminator", ",aa,bb", ",", ",", ",*,*"},
    {"key inside the terminator is no occurrence", "k=abc&k=&x", "k=", "&k=&", "k=*&k=&x"},
    {"empty key", "pw=abc&", "", "&", "pw=abc&"},
    {"empty terminator", "pw=abc&", "pw=", "", "pw=abc&"},
    {"null key", "pw=abc&", nullptr, "&", "pw=abc&"},
    {"null terminator", "pw=abc&", "pw=", nullptr, "pw=abc&"},
    {"text shorter than the key", "pw", "pw=", "&", "pw"},
    {"empty text", "", "pw=", "&", ""},
};

TEST(MaskText, ValuesBecomeOneAsteriskAndLeaveNothingBehind) {
  for (const MaskCase& row : kMaskCases) {
    SCOPED_TRACE(row.name);
    const std::string text = row.text;
    std::vector<char> buffer(text.begin(), text.end());  // not terminated: reading on is a fault
    const unsigned long length = maskText(buffer.data(), buffer.size(), row.key, row.terminator);
    ASSERT_LE(length, buffer.size());
    EXPECT_EQ(std::string(buffer.data(), length), row.expected);
    EXPECT_EQ(std::string(buffer.begin() + static_cast<std::ptrdiff_t>(length), buffer.end()),
              std::string(buffer.size() - length, '\0'));
  }
  EXPECT_EQ(maskText(nullptr, 5, "pw=", "&"), 0U);
}

TEST(MaskText, StaysWithinTheLength) {
  std::string text = "pw=abc&pw=def&";
  EXPECT_EQ(maskText(text.data(), 6, "pw=", "&"), 4U);  // the terminator is not within
  EXPECT_EQ(text, std::string("pw=*\0\0&pw=def&", 14));
}

TEST(StrnStr, FindsTheWholeNeedleWithinTheLength) {
  const char* const text = "abcabd";
  const struct {
    const char* needle;
    unsigned long length;
    long offset;  // -1: none
  } rows[] = {{"abd", 6, 3}, {"abd", 5, -1}, {"abc", 3, 0}, {"abc", 2, -1}, {"ABC", 6, -1},
              {"", 6, 0},    {"", 0, 0},     {"b", 6, 1},   {"d", 5, -1},   {nullptr, 6, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.needle == nullptr ? "null" : row.needle);
    EXPECT_EQ(UTLString_strnstr(text, row.needle, row.length), row.offset < 0 ? nullptr : text + row.offset);
  }
  EXPECT_EQ(UTLString_strnstr(nullptr, "a", 6), nullptr);
}

// Each text with what is logged for it.
constexpr const char* kSensitive[][2] = {
    {"", ""},
    {"nothing secret: at=all, {\"keys\":1}", "nothing secret: at=all, {\"keys\":1}"},
    {"accessTicket: t1\tdevSpecAccessTicket: ", "accessTicket: *"},
    {"devSpecAccessTicket: t2", "devSpecAccessTicket: *"},
    {"password: abc", "password: *"},
    {"Password: abc,def", "Password: *,def"},
    {"Password: ,def", "Password: ,def"},
    {R"({\"password\": \"p\\w\", \"x\": \"y\"})", R"({\"password\": \"*\", \"x\": \"y\"})"},
    {"service_ticket: abc", "service_ticket: *"},
    {"serPwd=abc&user=x", "serPwd=*&user=x"},
    {"x-kt-serviceTicket: abc", "x-kt-serviceTicket: *"},
    {"X-kt-serviceTicket: abc", "X-kt-serviceTicket: *"},
    {R"("kelCredentialHeader":"a","b":1)", R"("kelCredentialHeader":*,"b":1)"},
    {R"("kevCredentialHeader":"a","b":1},c)", R"("kevCredentialHeader":*},c)"},
    {R"(\"kelCredentialHeader\":\"a\",b)", R"(\"kelCredentialHeader\":*,b)"},
    {R"(\"kevCredentialHeader\":\"a\",b}c)", R"(\"kevCredentialHeader\":*}c)"},
    {"kel_credential: abc", "kel_credential: *"},
    {R"({"a":1,"partnerPassword":"abc","b":2})", R"({"a":1,"partnerPassword":"*","b":2})"},
    {R"({"partnerPassword":"abc","b":2})", R"({"partnerPassword":*)"},
    // The form with the comma is the only one masked where both occur.
    {R"({"partnerPassword":"a1","x":0,"partnerPassword":"b2","b":2})",
     R"({"partnerPassword":"a1","x":0,"partnerPassword":"*","b":2})"},
    // A row before has removed the form with the comma.
    {R"("partnerPassword":"a1";password: x,"partnerPassword":"b2","b":2)", R"("partnerPassword":*)"},
    {R"({"key":"abc","b":2})", R"({"key":*)"},
    {R"({"a":"key","b":"k"})", R"({"a":"key","b":"k"})"},
};

TEST(LogSensitiveString, EachCredentialIsMaskedInTheLine) {
  const auto result = logtest::RunInChild([] {
    UTL_LOGInit("mask", nullptr);
    for (const auto& row : kSensitive) {
      Util_LogSensitiveString("<", row[0], ">", "a/b.cpp", 7, "F");
    }
    Util_LogSensitiveString("two lines: ", "password: ab\nPassword: cd,e\npassword: f", nullptr, "b.cpp", 8,
                            "G");
    Util_LogSensitiveString(nullptr, nullptr, nullptr, nullptr, 0, nullptr);
    UTL_LOGSetLevel(UTL_LOG_INFO, 0);
    Util_LogSensitiveString("off ", "serPwd=x", "", "b.cpp", 9, "G");
  });
  logtest::ExpectCleanExit(result);
  std::vector<std::string> expected;
  for (const auto& row : kSensitive) {
    expected.push_back(std::string(" INFO  |<") + row[1] + ">");
  }
  expected.insert(expected.end(),
                  {" INFO  |two lines: password: *", "Password: *,e", "password: *", " INFO  |"});
  EXPECT_EQ(logtest::Messages(result.out), expected);
  const logtest::Line first = logtest::ParseLines(result.out).at(0);
  EXPECT_EQ(first.file + ":" + std::to_string(first.line) + ":" + first.function, "b.cpp:7:F");
}

TEST(LogSensitiveString, WithoutMemoryNothingOfTheTextIsLogged) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers need the address space that this test takes away";
#endif
  const auto result = logtest::RunInChild([] {
    UTL_LOGInit("mask", nullptr);
    const std::string text = "password: " + std::string(512UL << 20, 's');
    const rlimit limit = {768UL << 20, 768UL << 20};  // no second one
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
    Util_LogSensitiveString("<", text.c_str(), ">", "b.cpp", 7, "F");
  });
  logtest::ExpectCleanExit(result);
  const auto lines = logtest::ParseLines(result.out);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].tag + lines[0].file + ":" + lines[0].function + "|" + lines[0].message,
            "##ERR##Utl_Log:Util_LogSensitiveString|Failed to malloc memory");
}

}  // namespace
