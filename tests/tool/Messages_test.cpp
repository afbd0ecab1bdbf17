// What the tool says of messages: their kind, why their signatures are wrong, what it signs and masks.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "message/MessageTestSupport.h"

namespace {

using message_test::Replaced;

const std::string kKey = "hush-hush", kWrong = "signature: wrong: ";
const std::string kMisfit = "signature: it does not fit this text and this key\n";

// What `pluginsdk <arguments>` prints, its errors among it, and its exit status. `input` is standard input
// and the file "in", `key` the file "key".
std::pair<std::string, int> RunTool(const std::string& arguments, const std::string& input,
                                    const std::string& key = kKey) {
  const auto folder = testing::TempDir() + "tool_" + std::to_string(::getpid()) + "/";
  std::filesystem::create_directory(folder);
  std::ofstream(folder + "in", std::ios::binary) << input;
  std::ofstream(folder + "key", std::ios::binary) << key;
  std::filesystem::permissions(folder + "key", std::filesystem::perms(0600));
  const std::string line = "cd " + folder + " && exec 2>&1 <in && " PLUGINSDK_TOOL " " + arguments;
  FILE* const tool = ::popen(line.c_str(), "r");
  std::string text;
  for (int c; (c = std::fgetc(tool)) != EOF;) text += static_cast<char>(c);
  const int status = ::pclose(tool);
  std::filesystem::remove_all(folder);
  EXPECT_EQ(text.find("hush"), std::string::npos) << "the key is shown";
  return {text, WEXITSTATUS(status)};
}

// `sent`, with the signature of `digested` behind its method.
std::string Signed(const std::string& digested, std::string sent, const std::string& key = kKey) {
  std::string digest, signature;
  CPluginUtil::GetSignDigest(digested, &digest);
  CPluginUtil::GetSignature(digest, key, &signature);
  return sent.insert(sent.rfind(R"(m")") + 1, "?authorization=" + signature);
}

// One document as several writers print it.
const std::string kCompact = R"({"params":{"a":["é😀/",1.5,{},[]]},"method":"v2/m"})";
const std::string kIndented =
    "{\n\t\"params\":\t{\n\t\t\"a\":\t[\"é😀/\", 1.5, {\n\t\t\t}, []]\n\t},\n\t\"method\":\t\"v2/m\"\n}";
const std::string kTight = R"({"params":{"a":["é😀/",1.50,{},[]]},"method":"v2/m"})";
const std::string kSpaced = R"({"params": {"a": ["é😀/", 1.50, {}, []]}, "method": "v2/m"})";

TEST(MessageTools, VerifyNamesTheCauseOfAWrongSignature) {
  const std::string mark = "\xef\xbb\xbf", small = R"(\u00e9\ud83d\ude00)", capital = R"(\u00E9\uD83D\uDE00)";
  const std::string slash = Replaced(Replaced(kCompact, "v2/", R"(v2\/)"), "😀/", R"(😀\/)");
  const std::string unix = Replaced(kCompact, ",", ",\n"), dos = Replaced(kCompact, ",", ",\r\n");
  const std::string four = "{\n    \"params\": 1,\n    \"method\": \"v2/m\"\n}",
                    tabbed = "{\n\t\"params\": 1,\n\t\"method\": \"v2/m\"\n}",
                    flat = R"({"params":1,"method":"v2/m"})";
  const struct {
    std::string digested, sent, cause, keyFile = kKey, key = kKey;
  } rows[] = {
      {kCompact, kCompact + "\r\n", "a newline or blanks came behind the text after signing\nmend: send"},
      {kCompact, " " + kCompact, "a newline or blanks came in front"},
      {kCompact, mark + kCompact, "a byte order mark came"},
      {kCompact + "\n", kCompact, "a newline behind the text was signed"},
      {kCompact + "\r\n", kCompact, "CR LF behind the text was signed"},
      {mark + kCompact, kCompact, "a byte order mark was signed"},
      {unix, dos, "line ends became CR LF"},
      {dos, unix, "line ends were CR LF"},
      {kTight, Replaced(kTight, "😀/", R"(😀\/)"), R"(slashes were escaped as \/ after)"},
      {slash, kCompact, R"(slashes were escaped as \/ when)"},
      {kTight, Replaced(kTight, "é😀", capital), R"(characters were escaped as \uXXXX after)"},
      {Replaced(kTight, "é😀", small), kTight, R"(characters beyond ASCII were escaped as \uxxxx when)"},
      {Replaced(kTight, "é😀", capital), kTight, R"(characters beyond ASCII were escaped as \uXXXX (cap)"},
      {kTight, Replaced(kTight, "é😀/", small + R"(\/)"), "slashes and characters were escaped after"},
      {Replaced(slash, "é😀", small), kCompact, "slashes and characters beyond ASCII were escaped when"},
      {kCompact, kSpaced, "the compact printing was signed"},
      {kIndented, kCompact, "the indented printing was signed"},
      {kTight, kSpaced, "a text without blanks was signed"},
      {kSpaced, kTight, "a text with a blank behind each comma and colon was signed"},
      {four, flat, "a text indented by four blanks was signed"},
      {Replaced(kCompact, "v2", "v1"), kCompact, "it was signed with version v1"},
      {Replaced(kCompact, "v2/", ""), kCompact, "it was signed without a version"},
      {kCompact, kCompact, "the key file ends in a newline that is no part", kKey + "\r\n"},
      {kCompact, kCompact, "the key file has blanks", " " + kKey},
      {kCompact, kCompact, "the key file begins with a byte order mark\n", mark + kKey},
      {kCompact, kCompact, "the key file begins with a byte order mark and ends", mark + kKey + "\n"},
      {kCompact, kCompact, "the signer's key ends in a newline", kKey, kKey + "\n"},
      {kCompact, kCompact, "the signer's key ends in CR LF", kKey, kKey + "\r\n"},
      {kCompact, kCompact,
       "the key file ends in a newline that is no part of the key; and the signer's key ends in CR",
       kKey + "\n", kKey + "\r\n"},
      {kTight, mark + kTight + "\n", "a newline or blanks came behind the text after signing; and a byte"},
      {kCompact, kCompact + " x", "something that is no part of the document came behind it"},
      {tabbed, flat, "a text indented by tabs"},
      {Replaced(flat, R"("params":1,"method":"v2/m")", R"("method":"v2/m","params":1)"), flat,
       "a text with sorted keys"},
      {Replaced(flat, "1", R"("\u003c")"), Replaced(flat, "1", R"("<")"), "<, > and & were escaped"},
      {kIndented, kTight, "the indented printing was signed, and another one came; and the key", kKey + "\n"},
      {Replaced(four, "/", R"(\/)"), flat, R"(slashes were escaped as \/ when it was signed; and a te)"},
  };
  for (const auto& row : rows) {
    const auto [text, status] =
        RunTool("verify --key-file key", Signed(row.digested, row.sent, row.key), row.keyFile);
    const std::string start = kWrong + kMisfit + "cause: " + row.cause;
    EXPECT_EQ(std::pair(text.substr(0, start.size()), status), std::pair(start, 1)) << row.sent;
  }
}

TEST(MessageTools, AnswerAndEndAsPromised) {
  const std::string right = Signed(kCompact, kCompact), escaped = Replaced(kCompact, "v2/", R"(v2\/)");
  std::string lucky = right;
  while (lucky.find("v1") == std::string::npos) lucky = Signed(kCompact, kCompact);
  const auto unusual = [](const std::string& version, const std::string& hash) {
    return Replaced(
        kCompact, R"(m"})",
        "m?authorization=$argon2id$v=" + version + "$m=64,t=16,p=8$c2l4dGVlbiBsZXR0ZXJzIQ$" + hash + R"("})");
  };
  // Beside the text, the indented printing of the request takes 88 bytes.
  const auto fits = R"({"events":")" + std::string(2048 - 88, 'x') + R"("})",
             tooLong = Replaced(fits, "x", "xx");
  const std::string verify = "verify --key-file key ", json = "{\n\t\"valid\":\t";
  const struct {
    std::string arguments, input, start;
    int status = 0;
  } rows[] = {
      {verify + "--as-is", right, "signature: right\n"},
      {verify + "--compact in", Replaced(right, ",", " ,\n"), "signature: right\n"},
      {verify + "--indented -", Signed(kIndented, kCompact), "signature: right\n"},
      {verify, lucky, "signature: right\nnote: the signature contains \"v1\" by chance"},
      {verify, unusual("19", "33lHRbezRbggkfCuCNzPkjz8ypZgTLb/jiz9y808B+U"),
       "signature: right\nnote: the signature has version 19, m=64,t=16,p=8, a salt of 16 and a hash of 32 "
       "bytes"},
      {verify, unusual("16", "AfbUDrImRNLgn9zwr1q/PA"),
       "signature: right\nnote: the signature has version 16"},
      {verify, R"({"params":1,"method":"x\nsignature: right"})", kWrong + R"(version: "x\u000asignature)", 1},
      {verify, Replaced(kCompact, "v2/", R"(v2\/)"), kWrong + "verbatim: ", 1},
      {verify + "--json", right, json + "true,\n\t\"failedCheck\":\tnull,"},
      {verify, Replaced(right, "params", "p"), kWrong + "params: ", 1},
      {verify, Replaced(right, "method", "m"), kWrong + "method: ", 1},
      {verify, Replaced(right, "v2", "v1"), kWrong + R"(version: "v1/m" contains "v1": nothing)", 1},
      {verify, Replaced(kCompact, "v2", "v3"), kWrong + R"(version: "v3/m" is neither)", 1},
      {verify, kCompact, kWrong + "marker: ", 1},
      {verify, Replaced(right, "$argon2id", "$argon2i"), kWrong + "form: ", 1},
      {verify, Replaced(right, "p=8$", "p=8$x"), kWrong + kMisfit + "cause: the signature has 75 characters",
       1},
      {verify, Replaced(right, "m=64,t=16", "m=65536,t=17"), kWrong + "cost: ", 1},
      {verify, Signed(escaped, escaped), kWrong + "verbatim: ", 1},
      {verify + "--json", Signed(kCompact, escaped), json + "false,\n\t\"failedCheck\":\t\"verbatim\",", 1},
      {verify, Signed("forged", kCompact), kWrong + kMisfit + "note: none of the usual causes fits", 1},
      {verify, "[", "pluginsdk verify: <standard input>:1:2: not JSON: the text ends\n", 2},
      {"classify", R"({"method":"v1/notifyPluginCommandAck"})", "notifyPluginCommand\n"},
      {"classify --json", R"({"error":5})", "{\n\t\"type\":\t\"error\",\n\t\"extra\":\t5\n}\n", 1},
      {"classify", "{}", "others\n", 1},
      {"classify in", "{\"é\":\n \"é\" x}", "others\npluginsdk classify: in:2:6: not JSON: unexpected 'x'",
       2},
      {"sign --version v1 --method notifyPluginCommand", "\n{\"é\":[1.0,1e400]}",
       "note: <standard input>:2:11: 1e400 becomes null when it is printed\n"
       R"({"jsonrpc":"2.0","params":{"é":[1,null]},"method":"v1/notifyPluginCommand"})"},
      {"sign --version v1", fits, R"({"jsonrpc")"},
      {"sign --version v1", tooLong, "pluginsdk sign: The data size exceeds the maximum name length", 1},
      {"sign --version v1 --json", tooLong,
       "{\n\t\"request\":\tnull,\n\t\"refusal\":\t{\n\t\t\"text\":\t\"The data", 1},
      {"sign --version v1", R"({"params":{"states":[]}})", R"({"jsonrpc":"2.0","params":{"states":[]},)"},
      {"sign --version v1", R"({"modules":[]})", R"({"jsonrpc":"2.0","params":{"modules":[]},)"},
      {"sign --version v1 --json", "{\"states\":[\"\xe9\"]}",
       "pluginsdk sign: <standard input>:1:13: not UTF-8", 2},
      {"sign --version v1", R"({"METHOD":"v1/notifyPluginState","params":5})",
       "pluginsdk sign: <standard input>: \"params\" is not an object", 2},
      {"nonsense", "", R"(no subcommand or option "nonsense")", 2},
      {"mask", std::string("a\xff\0b", 4),
       "note: <standard input>: the log shows 2 of 4 bytes, up to the first zero byte\na\xff"},
      {"mask --json", "\xe9serPwd=x", "{\n\t\"text\":\t\"\xef\xbf\xbdserPwd=*\",\n\t\"masked\":\ttrue\n}\n"},
  };
  for (const auto& row : rows) {
    const auto [text, status] = RunTool(row.arguments, row.input);
    EXPECT_EQ(std::pair(text.substr(0, row.start.size()), status), std::pair(row.start, row.status))
        << row.input;
  }
  for (const std::string wrong :
       {"", "none", "verify", "verify --key-file none", "verify --key-file key --indented --compact", "sign",
        "sign --version v3", "sign --version v1 --method x", "mask /", "check ''", "--help >/dev/full",
        "sign --key-file /dev/zero"}) {
    EXPECT_EQ(RunTool(wrong + " 2>/dev/null", R"({"states":[]})"), std::pair(std::string(), 2)) << wrong;
  }
}

TEST(MessageTools, FaultsOfJsonAreToldWhereTheyAre) {
  const std::pair<std::string, std::string> rows[] = {
      {R"({"a":1,})", "1:8: not JSON: unexpected '}'"},
      {"{\n\"a\":1,\n}\n", "3:1: not JSON: unexpected '}'"},
      {"{a:1}", "1:2: not JSON: unexpected 'a'"},
      {"[1,,2]", "1:4: not JSON: unexpected ','"},
      {R"({"a" 1})", "1:6: not JSON: unexpected '1'"},
      {R"({"a":1]})", "1:7: not JSON: unexpected ']'"},
      {R"({"a":1} x)", "1:9: not JSON: unexpected 'x'"},
      {"[tru]", "1:2: not JSON: unexpected 't'"},
      {R"({"é":"x)", "1:6: not JSON: this string is not closed"},
      {R"(["\x"])", "1:3: not JSON: no escape begins like this"},
      {R"(["\ud800\u0041"])", "1:3: not JSON: half of a surrogate pair"},
      {std::string(1001, '['), "1:1001: nested deeper than 1000 levels"}};
  for (const auto& [text, place] : rows) {
    EXPECT_EQ(RunTool("check", text).first, "pluginsdk check: <standard input>:" + place + "\n");
  }
}

TEST(MessageTools, SignEveryKindInBothPrintings) {
  for (const std::string kind : {"State/states", "Metric/metrics", "Event/events", "Alert/alarms",
                                 "CommandAck/commandState", "LocalCommand/clientAppGUID", "Update/appName"}) {
    const std::size_t slash = kind.find('/');
    const auto name = kind.substr(0, slash),
               params = R"({"epoch":"1",")" + kind.substr(slash + 1) + R"(":["é",1.5]})";
    const auto request =
        R"({"jsonrpc":"2.0","params":)" + params + R"(,"method":"v1/notifyPlugin)" + name + "\"}";
    EXPECT_EQ(RunTool("sign --version v1", params).first, request);
    for (const bool compact : {true, false}) {
      const auto text =
          RunTool(compact ? "sign --key-file key -" : "sign --key-file key --indented in", request).first;
      const message_test::JsonPtr tree = message_test::Json(text);
      EXPECT_EQ(text, message_test::Printed(tree.get(), compact));
      EXPECT_TRUE(message_test::IsSigned(tree.get(), compact, kKey.c_str())) << text;
    }
  }
}

TEST(MessageTools, MaskAsTheLogDoes) {
  const char* const secrets = R"(serPwd=a&Password: b,"kevCredentialHeader":c},"partnerPassword":"e",f)";
  const auto logged = message_test::Logged([&] { Util_LogSensitiveString("", secrets, "", "f", 1, "F"); });
  EXPECT_EQ(logged.at(0), " INFO  |f:F| " + RunTool("mask", secrets).first);
}

}  // namespace
