// Masking: what a secret leaves behind, in the text and in the buffer.

#include <gtest/gtest.h>
#include <sys/resource.h>

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
      {"a pw: secret and more", "pw: ", "\n", "a pw: *"},  // no terminator: the rest is dropped
      {"pw=abc&x&pw=&PW=h&pw=", "pw=", "&", "pw=*&x&pw=&PW=h&pw="},
      {",k=a,k=b,k=c", ",k=", ",", ",k=*,k=*,k=*"},  // the key begins with the terminator
      {"pw=abc&", "", "&", "pw=abc&"},
      {"pw=abc&", "pw=", nullptr, "pw=abc&"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    std::string text = row.text;
    std::string expected = row.expected;
    EXPECT_EQ(maskText(text.data(), text.size(), row.key, row.terminator), expected.size());
    expected.resize(text.size());  // zeros: nothing of a secret stays behind the text
    EXPECT_EQ(text, expected);
  }
  EXPECT_EQ(maskText(nullptr, 5, "pw=", "&"), 0U);
  EXPECT_EQ(UTLString_strnstr(nullptr, "a", 6), nullptr);
  EXPECT_STREQ(UTLString_strnstr("abc", nullptr, 3), "abc");
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
    for (const auto& row : kSensitive) Util_LogSensitiveString("<", row[0], ">", "a/b.cpp", 7, "F");
    Util_LogSensitiveString(nullptr, nullptr, nullptr, nullptr, 0, nullptr);
    UTL_LOGSetLevel(UTL_LOG_INFO, 0);
    Util_LogSensitiveString("off ", "serPwd=x", "", "b.cpp", 9, "G");
#ifndef PLUGINSDK_SANITIZED  // sanitizers need the address space that this takes away
    const std::string text = "password: " + std::string(512UL << 20, 's');
    const rlimit roomForOne = {768UL << 20, 768UL << 20};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &roomForOne), 0);
    Util_LogSensitiveString("<", text.c_str(), ">", "b.cpp", 7, "F");
#endif
  });
  logtest::ExpectCleanExit(result);
  std::string expected;
  for (const auto& row : kSensitive) expected += std::string(" INFO  |<") + row[1] + ">\n";
  expected += " INFO  |\n";
#ifndef PLUGINSDK_SANITIZED
  expected += "##ERR##|Failed to malloc memory\n";
#endif
  std::string logged;
  for (const std::string& message : logtest::Messages(result.out)) logged += message + "\n";
  EXPECT_EQ(logged, expected);
  EXPECT_NE(result.out.find("|b.cpp:7:F| <"), std::string::npos);
}

}  // namespace
