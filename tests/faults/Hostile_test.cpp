// Messages as large, as deep and as odd as they come: the right verdict, in time that grows with the text.
#include "message/MessageTestSupport.h"

using namespace message_test;

namespace {

std::string Repeated(std::size_t count, const std::string& text) {
  std::string repeated;
  repeated.reserve(count * text.size());
  for (; count > 0; --count) repeated += text;
  return repeated;
}

std::string Brackets(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

// Anything quadratic would not come back from a million of elements.
TEST(Hostile, LargeAndDeepTextsGetTheirVerdict) {
  UTL_LOGSetWriteToStdout(false);
  constexpr std::size_t kMillion = 1000000;
  const std::string large = '"' + std::string(10 << 20, 'x') + '"';
  const struct {
    const char* name;
    std::string list;
    std::size_t elements;  // 0 for what is not JSON
  } rows[] = {
      {"as deep as JSON may be", Brackets(998), 1},
      {"one deeper", Brackets(999), 0},
      {"never closed", std::string(kMillion, '['), 0},
      {"a large text", "[" + large + "]", 1},
      {"many elements", "[" + Repeated(kMillion - 1, "1,") + "1]", kMillion},
      {"many members of one name", R"([{)" + Repeated(kMillion / 4 - 1, R"("n":1,)") + R"("n":1}])", 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string text =
        R"({"params":{"commands":)" + row.list + R"(},"method":"v1/notifyPluginCommand"})";
    const CCommandPluginJson command(text.c_str(), "");
    EXPECT_EQ(command.m_commands.size(), row.elements);
    const CAlarmUpdatePluginJson update(Replaced(text, "commands", "modules").c_str(), "");
    EXPECT_EQ(update.m_modules.size(), row.elements);
    EXPECT_TRUE(update.GetAlarms("m").empty());
    std::string type;
    cJSON_free(CPluginUtil::GetMessageType(Replaced(text, "params", "error").c_str(), &type));
    EXPECT_EQ(type, row.elements > 0 ? "error" : "others");
    if (row.elements == 0) continue;
    JsonPtr list = Json(row.list);
    EXPECT_EQ(Thrown([&] { return States().CreateStatesItemJson("n", list.get()); }).substr(0, 30),
              R"(2 The length of "n" exceeds th)");
    const JsonPtr acks(Acks::CreateCommandAcksItemJson("n", list.release()));
    EXPECT_GT(Printed(acks.get()).size(), row.list.size());
  }
  EXPECT_EQ(Thrown([&] { return States().CreateStatesItemJson("n", large.c_str()); }),
            "2 The length of \"" + large + "\" exceeds the maximum string length, i.e. 512 Bytes.");
}

TEST(Hostile, TextsOfAnyBytesAreRefusedAsNamesAndTravelAsValues) {
  UTL_LOGSetWriteToStdout(false);
  States builder;
  builder.m_version = "v2";
  for (const std::string text : {"a\"b\\", "\x01\x1f\x7f\n\r\t", "\xff\xfe\x80", "na\xc3", "%s%n", "a\n"}) {
    const std::string format = " format: \"" + text + "\"";
    EXPECT_EQ(Thrown([&] { return Base::CreateBaseDataItemJson(text.c_str(), "", "", nullptr); }),
              "1 Invalid name" + format);
    EXPECT_EQ(Thrown([&] { return Base::CreateBaseDataItemJson("n", "", "", text.c_str()); }),
              "1 Invalid displayCategory" + format);
    builder.m_appGUID = builder.m_moduleName = builder.m_accessKey = text;
    const JsonPtr request(builder.GetJsonrpcRequest(
        builder.CreateStatesParamsObj(builder.CreateStatesItemJson(text.c_str(), text.c_str()))));
    const CCommandPluginJson received(Printed(request.get()).c_str(), text, VerificationLimits());
    EXPECT_TRUE(received.m_validSignature);
    EXPECT_EQ(received.m_moduleName, text);
  }
}

}  // namespace
