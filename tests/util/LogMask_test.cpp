// Masking: what a secret leaves behind, in the text and in the buffer.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>

#include "LogTestSupport.h"
#include "Utl_Log.h"

namespace {

TEST(MaskText, ValuesBecomeOneAsteriskAndLeaveNothingBehind) {
  const struct {
    const char* text;
    const char* key;
    const char* terminator;
    const char* expected;
  } rows[] = {
      {"user: bob\npw: secret\nmore", "pw: ", "\n", "user: bob\npw: *\nmore"},
      {"a pw: secret and more", "pw: ", "\n", "a pw: *"},  // no terminator: the rest is dropped
      {"pw=&pw=x&", "pw=", "&", "pw=&pw=*&"},              // an empty value stays
      {"pw=abc&x&pw=defg&PW=h&pw=", "pw=", "&", "pw=*&x&pw=*&PW=h&pw="},
      {"pw=pw=pw=&pw=a&", "pw=", "&", "pw=*&pw=*&"},  // the value holds the key
      {",k=a,k=b,k=c", ",k=", ",", ",k=*,k=*,k=*"},   // the key begins with the terminator
      {R"(,"k":"ab","k":"cd",)", R"(,"k":")", R"(",)", R"(,"k":"*","k":"*",)"},  // ... with its end
      {"k=abc&k=&x", "k=", "&k=&", "k=*&k=&x"},  // a key inside the terminator is none
      {"pw=abc&", "", "&", "pw=abc&"},
      {"pw=abc&", "pw=", nullptr, "pw=abc&"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    std::vector<char> buffer(row.text, row.text + std::strlen(row.text));  // not terminated
    const unsigned long length = maskText(buffer.data(), buffer.size(), row.key, row.terminator);
    std::string expected = row.expected;
    EXPECT_EQ(length, expected.size());
    expected.resize(buffer.size());  // zeros: nothing of a secret stays behind the text
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), expected);
  }
  std::string text = "pw=abc&pw=def&";
  EXPECT_EQ(maskText(text.data(), 6, "pw=", "&"), 4U);  // the terminator is not within
  EXPECT_EQ(text, std::string("pw=*\0\0&pw=def&", 14));
  EXPECT_EQ(maskText(nullptr, 5, "pw=", "&"), 0U);
}

TEST(StrnStr, FindsTheWholeNeedleWithinTheLength) {
  const char* const text = "abcabd";
  EXPECT_EQ(UTLString_strnstr(text, "abd", 6), text + 3);
  EXPECT_EQ(UTLString_strnstr(text, "abd", 5), nullptr);
  EXPECT_EQ(UTLString_strnstr(text, "abc", 2), nullptr);
  EXPECT_EQ(UTLString_strnstr(text, "", 0), text);
  EXPECT_EQ(UTLString_strnstr(text, nullptr, 6), text);
  EXPECT_EQ(UTLString_strnstr(nullptr, "a", 6), nullptr);
}

// Each text with what is logged for it.
constexpr const char* kSensitive[][2] = {
    {"nothing secret: at=all, {\"keys\":1}", "nothing secret: at=all, {\"keys\":1}"},
    {"accessTicket: t1\tdevSpecAccessTicket: ", "accessTicket: *"},
    {"password: a\nservice_ticket: b\nx-kt-serviceTicket: c\nX-kt-serviceTicket: d\nkel_credential: e\n"
     "devSpecAccessTicket: f\npassword: g",
     "password: *\nservice_ticket: *\nx-kt-serviceTicket: *\nX-kt-serviceTicket: *\nkel_credential: *\n"
     "devSpecAccessTicket: *\npassword: *"},
    {"Password: abc,Password: ,serPwd=abc&user=x", "Password: *,Password: ,serPwd=*&user=x"},
    {R"({\"password\": \"p\\w\", \"x\": \"y\"})", R"({\"password\": \"*\", \"x\": \"y\"})"},
    {R"("kelCredentialHeader":"a","b":1,"kevCredentialHeader":"c","d":2},e)",
     R"("kelCredentialHeader":*,"b":1,"kevCredentialHeader":*},e)"},
    {R"(\"kelCredentialHeader\":\"a\",b,\"kevCredentialHeader\":\"c\",d}e)",
     R"(\"kelCredentialHeader\":*,b,\"kevCredentialHeader\":*}e)"},
    {R"({"a":1,"partnerPassword":"abc","b":2})", R"({"a":1,"partnerPassword":"*","b":2})"},
    {R"({"partnerPassword":"abc","b":2})", R"({"partnerPassword":*)"},
    // An earlier row cuts off the form with the comma.
    {R"("partnerPassword":"a";password: x,"partnerPassword":"b","c":2)", R"("partnerPassword":*)"},
    {R"({"key":"abc","b":2})", R"({"key":*)"},
};

TEST(LogSensitiveString, EachCredentialIsMaskedInTheLine) {
  const auto result = logtest::RunInChild([] {
    UTL_LOGInit("mask", nullptr);
    for (const auto& row : kSensitive) {
      Util_LogSensitiveString("<", row[0], ">", "a/b.cpp", 7, "F");
    }
    Util_LogSensitiveString(nullptr, nullptr, nullptr, nullptr, 0, nullptr);
    UTL_LOGSetLevel(UTL_LOG_INFO, 0);
    Util_LogSensitiveString("off ", "serPwd=x", "", "b.cpp", 9, "G");
  });
  logtest::ExpectCleanExit(result);
  std::string expected;
  for (const auto& row : kSensitive) {
    expected += std::string(" INFO  |<") + row[1] + ">\n";
  }
  std::string logged;
  for (const std::string& message : logtest::Messages(result.out)) {
    logged += message + "\n";
  }
  EXPECT_EQ(logged, expected + " INFO  |\n");
  EXPECT_NE(result.out.find("|b.cpp:7:F| <"), std::string::npos);
}

TEST(LogSensitiveString, WithoutMemoryNothingOfTheTextIsLogged) {
#ifdef PLUGINSDK_SANITIZED
  GTEST_SKIP() << "sanitizers need the address space that this test takes away";
#endif
  const auto result = logtest::RunInChild([] {
    const std::string text = "password: " + std::string(512UL << 20, 's');
    const rlimit roomForOne = {768UL << 20, 768UL << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &roomForOne), 0);
    UTL_LOGInit("mask", nullptr);
    Util_LogSensitiveString("<", text.c_str(), ">", "b.cpp", 7, "F");
  });
  logtest::ExpectCleanExit(result);
  EXPECT_EQ(logtest::Messages(result.out), std::vector<std::string>{"##ERR##|Failed to malloc memory"});
}

}  // namespace
