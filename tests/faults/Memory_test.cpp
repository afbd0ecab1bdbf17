// Every public builder and parser as one operation. Under the test each of its allocations is refused in
// turn: nothing crashes, leaks or is handed out by halves. With
//   memory_faults_test --soak ROUNDS
// all of them run that many times, and the program fails when its memory grows.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <regex>

#include "FaultEngine.h"
#include "message/MessageTestSupport.h"
#include "message/WatcherPlugin.h"

using namespace message_test;

namespace {

struct Operation {
  const char* name;
  std::function<std::string()> run;  // gives the result as text
  std::vector<std::string> lesser;   // what may come out, beside an exception, when memory is short
};
const std::string kNull = "(null)";

// The call that is looked at, without what it takes to prepare it and to read its result.
template <typename Call>
auto Watched(Call call) {
  const faults::Window window;
  return call();
}

const char* const kKey = "the access key of both";
const std::string kReceived = R"({"commandId":"77","commandSource":"some remote agent","moduleName":"m",
  "commands":[{"name":"move","params":[{"name":"speed","value":0.1234567890123456789}]},5],
  "modules":[{"moduleName":"m","alarms":[1,{"a":[2]}]}]})";

std::string Request(const char* version) {
  States agent;
  agent.m_version = version;
  agent.m_accessKey = kKey;
  return Printed(JsonPtr(agent.GetJsonrpcRequest(Json(kReceived).release())).get());
}

template <typename Builder>
void SetUp(Builder& builder) {
  builder.m_appGUID = "a1b2-c3d4-e5f6-a7b8-c9d0";
  builder.m_moduleName = "camera";
  builder.m_accessKey = kKey;
  if constexpr (std::is_same_v<Builder, Acks>) {
    static CCommandPluginJson command(Request("v1").c_str(), "");
    builder.m_commandPluginJson = &command;
  }
}

// A builder with a tree of the caller, which it may take. One that it has freed or forgotten in spite of a
// failure is told by the sanitizer.
template <typename Builder>
Operation Of(const char* name, cJSON* (*build)(Builder&, cJSON*), std::vector<std::string> lesser = {}) {
  const auto run = [=] {
    Builder builder;
    SetUp(builder);
    JsonPtr lent = Json(R"([{"name":"a","value":"1.5"},"b"])");
    const JsonPtr result(Watched([&] { return build(builder, lent.get()); }));
    if (lent->prev != nullptr) lent.release();  // only what is attached has a neighbour, be it itself
    return Printed(result.get());
  };
  return {name, run, lesser};
}

// Without an envelope there is no request, as the header says.
template <typename Builder>
Operation RequestOf(const char* name) {
  return Of<Builder>(name, [](Builder& b, cJSON* t) { return b.GetJsonrpcRequest(t, false); }, {kNull});
}

// Without memory a text counts as not JSON, and a signature as wrong.
template <typename Parsed>
Operation Parse(const char* name, const char* version, std::list<cJSON*> Parsed::*list) {
  const auto run = [list, text = Request(version)] {
    const VerificationLimits limits{64, 16, 8, 108, false};
    const auto parsed = Watched([&] { return std::make_unique<Parsed>(text.c_str(), kKey, limits); });
    std::string read;
    for (const cJSON* tree : (*parsed).*list) read += Printed(tree);
    return read.empty() != parsed->m_validSignature ? read : "trust and contents differ";
  };
  return {name, run, {""}};
}

Operation Classify(const char* name, const char* text, std::vector<std::string> lesser) {
  const auto run = [=] {
    std::string type;
    const JsonText extra(Watched([&] { return CPluginUtil::GetMessageType(text, &type); }));
    return type + ":" + (extra ? extra.get() : "");
  };
  return {name, run, lesser};
}

std::string Register() {
  WatcherPlugin plugin;
  return Printed(Watched([&] { return plugin.Build(); })->m_request);
}

// A request stays stored until there is another, and is the application's then.
std::string RegisterAgain() {
  WatcherPlugin plugin;
  cJSON*& stored = plugin.Build()->m_request;
  const auto deleteIfReplaced = [&](cJSON* former) { cJSON_Delete(stored == former ? nullptr : former); };
  const std::unique_ptr<cJSON, decltype(deleteIfReplaced)> former(stored, deleteIfReplaced);
  Watched([&] { plugin.root.UpdateNotifyPluginUpdateData(); });
  return Printed(stored);
}

std::string Renew() {
  WatcherPlugin plugin;
  Update& builder = *plugin.Build();
  return Printed(JsonPtr(Watched([&] { return builder.RenewUpdateJsonObject(false); })).get());
}

std::string ReportLocally() {
  LocalReport report;
  report.root.m_clientAppGUID = "an identifier that needs memory of its own";
  report.root.m_commands = {&report.reboot, &report.reboot};
  return Printed(Watched([&] { return report.root.GetNotifyPluginLocalCommand("v1", kKey); })->m_request);
}

cJSON* Signed(States& builder, cJSON* tree) {
  builder.m_version = "v2";
  return builder.GetJsonrpcRequest(tree);
}

std::vector<Operation> Reports() {
  return {
      Of<States>("text", [](auto& b, cJSON*) { return b.CreateStatesItemJson("power", "on"); }),
      Of<States>("tree", [](auto& b, cJSON* t) { return b.CreateStatesItemJson("disks", t); }),
      Of<Metrics>("number", [](auto& b, cJSON*) { return b.CreateMetricsItemJson("fps", 29.97); }),
      Of<Events>("event", [](auto& b, cJSON*) { return b.CreateEventsItemJson("motion", "left"); }),
      Of<Alerts>("alert", [](auto& b, cJSON*) { return b.CreateAlarmsItemJson("hot", "trigger", "M"); }),
      Of<Acks>("ack", [](auto& b, cJSON*) { return b.CreateCommandAcksItemJson("move", "done"); }),
      Of<Acks>("ack of a tree", [](auto& b, cJSON* t) { return b.CreateCommandAcksItemJson("move", t); }),
      Of<Local>("local command", [](auto& b, cJSON* t) { return b.CreateCommandsItemJson("move", t); }),

      Of<States>("states", [](auto& b, cJSON* t) { return b.CreateStatesParamsObj(t); }),
      Of<Metrics>("metrics", [](auto& b, cJSON* t) { return b.CreateMetricsParamsObj(t); }),
      Of<Events>("events", [](auto& b, cJSON* t) { return b.CreateEventsParamsObj(t); }),
      Of<Alerts>("alerts", [](auto& b, cJSON* t) { return b.CreateAlarmsParamsObj(t); }),
      Of<Local>("local commands", [](auto& b, cJSON* t) { return b.CreateLocalCommandParamsObj(t); }),
      Of<Acks>("acks", [](auto& b, cJSON* t) { return b.CreateCommandAcksAcceptedParamsObj(t); }),
      RequestOf<States>("states request"),
      RequestOf<Metrics>("metrics request"),
      RequestOf<Events>("events request"),
      RequestOf<Alerts>("alerts request"),
      RequestOf<Acks>("acks request"),
      RequestOf<Local>("local request"),
      RequestOf<Update>("registration request"),
      Of<States>("signed request", Signed, {kNull}),
  };
}

std::vector<Operation> DescriptionsAndReceived() {
  return {
#define PLUGINSDK_ITEM(name, call) \
  Of<Update>(name, [](Update&, [[maybe_unused]] cJSON* t) { return Update::call; })
      PLUGINSDK_ITEM("data", CreateBaseDataItemJson("n", "N", "D", "C")),
      PLUGINSDK_ITEM("text property", CreateUpdatePropertiesItemJson("n", "N", "D", "string", "C", "value")),
      PLUGINSDK_ITEM("table property", CreateUpdatePropertiesItemJson("n", "N", "D", "table", "C", t)),
      PLUGINSDK_ITEM("state", CreateUpdateStatesItemJson("n", "N", "D", "string", "C")),
      PLUGINSDK_ITEM("event", CreateUpdateEventsItemJson("n", "N", "D", "C")),
      PLUGINSDK_ITEM("metric", CreateUpdateMetricsItemJson("n", "N", "D", "1/s", "x", "C")),
      PLUGINSDK_ITEM("command", CreateUpdateCommandsItemJson("n", "N", "D", "C", t, nullptr)),
      PLUGINSDK_ITEM("alarm", CreateUpdateAlarmsItemJson("n", "N", "D", "C", t)),
      PLUGINSDK_ITEM("list",
                     CreateUpdateCommandParamsItemJson("n", "N", "D", "d", "list", true, "F", t, "P")),
      PLUGINSDK_ITEM("number", CreateUpdateCommandParamsItemJson("n", "N", "D", 2.5, "x", true, "F", t, "P")),
      PLUGINSDK_ITEM("switch", CreateUpdateAlarmParamsItemJson("n", "N", "D", "switch", true, "F", t)),
      PLUGINSDK_ITEM("module", CreateUpdateModulesItemJson("m", "M", "D", nullptr, t, nullptr, nullptr,
                                                           nullptr, nullptr)),
#undef PLUGINSDK_ITEM
      Of<Update>("application",
                 [](auto& b, cJSON* t) {
                   return b.CreateUpdateParamsObj("app", "A", "ib", "1.0.0", "run", "halt", t);
                 }),
      {"described registration", Register, {}},
      {"described registration again", RegisterAgain, {}},
      {"renewed registration", Renew, {kNull}},
      {"described local commands", ReportLocally, {}},

      Parse("command", "v1", &CCommandPluginJson::m_commands),
      Parse("signed command", "v2", &CCommandPluginJson::m_commands),
      Parse("alarm update", "v1", &CAlarmUpdatePluginJson::m_modules),
      Parse("signed alarm update", "v2", &CAlarmUpdatePluginJson::m_modules),
      Classify("error", R"({"error":{"code":-32601}})", {"others:", "error:"}),
      Classify("agent event", R"({"method":"notifyAgentEvent","params":{"serverConnectivity":"online"}})",
               {"others:", "notifyAgentEvent:"}),
  };
}

std::vector<Operation> Operations() {
  std::vector<Operation> all = Reports();
  for (const Operation& other : DescriptionsAndReceived()) all.push_back(other);
  return all;
}

// With the same time stamps and salts at each run.
std::string Outcome(const Operation& operation) {
  std::srand(1);
  try {
    return operation.run();
  } catch (const std::bad_alloc&) {
    return "std::bad_alloc";
  }
}

TEST(Memory, IsRefusedAtEachAllocationOfEachOperation) {
  faults::clock = 1700000000;
  const std::regex signature(R"(\?authorization=[^"]*)");
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.name);
    faults::current = {};
    const std::string whole = Outcome(operation);
    // A request may also go out unsigned or with an empty signature, which the agent refuses both.
    std::vector<std::string> outcomes = operation.lesser;
    for (const char* left : {"$&", "?authorization=", ""})
      outcomes.push_back(std::regex_replace(whole, signature, left));
    outcomes.emplace_back("std::bad_alloc");
    for (int nth = 1;; ++nth) {
      faults::current = {"malloc", ENOMEM, nth};
      const std::string outcome = Outcome(operation);
      if (faults::current.seen < nth) {
        EXPECT_EQ(outcome, whole);
        EXPECT_GT(nth, 1);
        break;
      }
      EXPECT_GT(std::count(outcomes.begin(), outcomes.end(), outcome), 0) << nth << ": " << outcome;
    }
  }
}

// ---- What an operation costs in allocations, beside the least that cJSON needs for the same trees: the part
// of its speed that no machine changes.

std::string Commands(int count) {
  std::string text = R"({"params":{"commandId":"1","commandSource":"remote","moduleName":"m","commands":[)";
  for (int i = 0; i < count; ++i) text += R"({"name":"move","params":[{"name":"speed","value":21.5}]},)";
  text.back() = ']';
  return text + R"(},"method":"v1/notifyPluginCommand"})";
}

std::function<void()> Parse(const std::string& text) {
  return [text] { cJSON_Delete(cJSON_Parse(text.c_str())); };
}

std::function<void()> Read(const std::string& text) {
  return [text] { const CCommandPluginJson request(text.c_str(), ""); };
}

// The builder is to allocate no more than a parse, which takes what the tree consists of.
constexpr char kStateReport[] =
    R"({"jsonrpc":"2.0","params":{"appGUID":"","epoch":"","moduleName":"","states":[)"
    R"({"name":"power","value":"on"},{"name":"power","value":"on"}]},"method":"v1/notifyPluginState"})";

void StateReport() {
  CStatesPluginJson builder;
  cJSON* states = cJSON_CreateArray();
  for (int i = 0; i < 2; ++i) cJSON_AddItemToArray(states, builder.CreateStatesItemJson("power", "on"));
  cJSON_Delete(builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states)));
}

TEST(Memory, EachOperationAllocatesWhatItsTreesConsistOf) {
  UTL_LOGSetLevel(UTL_LOG_INFO, 0);
  const std::string ten = Commands(10);
  const std::string hundred = Commands(100);
  std::string type;
  std::string signature;
  const auto sign = [&] { CPluginUtil::GetSignature("digest", "key", &signature); };
  const auto verify = [&] { CPluginUtil::VerifySignature("digest", "key", signature); };
  sign();
  const struct {
    const char* name;
    std::function<void()> ours;
    std::function<void()> least;
    int more;  // allocations on top: texts that are passed by value, and list nodes
  } rows[] = {
      {"name format", [] { CPluginUtil::RegExMatch("name", StringFormatter::nameFormat, true); }, [] {}, 1},
      {"state report with its size check", StateReport, Parse(kStateReport), 2},
      {"message type", [&] { CPluginUtil::GetMessageType(ten.c_str(), &type); }, Parse(ten), 1},
      {"10 commands: one parse", Read(ten), Parse(ten), 10 + 1},
      {"100 commands: one parse", Read(hundred), Parse(hundred), 100 + 1},
      {"signature: no thread", sign, [] {}, 3},
      {"verification: no thread", verify, [] {}, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_LE(faults::CountOf("malloc", row.ours), faults::CountOf("malloc", row.least) + row.more);
  }
}

// ---- The soak

long ResidentKiB() {
  long total = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int Soak(long rounds) {
  constexpr long kAllowedKiB = 256;  // by which a heap may waver
  const std::vector<Operation> operations = Operations();
  long first = 0;
  for (long round = 1; round <= rounds; ++round) {
    for (const Operation& operation : operations) operation.run();
    if (round % std::max(rounds / 10, 1L) != 0) continue;
    const long resident = ResidentKiB();
    std::printf("%8ld rounds %6ld KiB\n", round, resident);
    std::fflush(stdout);
    if (first == 0) first = resident;
    if (resident > first + kAllowedKiB) return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  UTL_LOGSetWriteToStdout(false);
  if (argc == 3 && std::string(argv[1]) == "--soak") return Soak(std::atol(argv[2]));
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
