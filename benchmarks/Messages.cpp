/// @file
/// Reports, classification and received texts, against the same work by hand with three JSON libraries.
/// Level INFO is off, so that no line is logged.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "Comparison.h"
#include "Registration.h"
#include "StatesPluginJson.h"
#include "Utl_Log.h"

namespace bench {

namespace {

// ---- A state report of five items, printed compact

struct State {
  const char* name;
  const char* value;
};
constexpr std::array<State, 5> kStates = {{{"power", "on"},
                                           {"mode", "automatic"},
                                           {"resolution", "1920x1080"},
                                           {"firmware", "12.0.451"},
                                           {"lastError", "none"}}};
constexpr const char* kGuid = "7a1c9f6e-52b0-4f0a-9d53-3f3a51f3c1de";
constexpr const char* kModule = "front-camera";

std::string Now() {
  return std::to_string(std::time(nullptr));
}

std::string PrintAndDelete(cJSON* tree) {
  char* text = cJSON_PrintUnformatted(tree);
  cJSON_Delete(tree);
  std::string copy = text;
  cJSON_free(text);
  return copy;
}

void Discard(cJSON* tree) {
  char* text = cJSON_PrintUnformatted(tree);
  benchmark::DoNotOptimize(text);
  cJSON_free(text);
  cJSON_Delete(tree);
}

cJSON* ReportByLibrary() {
  CStatesPluginJson builder;
  builder.m_appGUID = kGuid;
  builder.m_moduleName = kModule;
  cJSON* states = cJSON_CreateArray();
  for (const State& state : kStates) {
    cJSON_AddItemToArray(states, builder.CreateStatesItemJson(state.name, state.value));
  }
  return builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states));
}

cJSON* ReportByHand() {
  cJSON* states = cJSON_CreateArray();
  for (const State& state : kStates) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "name", state.name);
    cJSON_AddStringToObject(item, "value", state.value);
    cJSON_AddItemToArray(states, item);
  }
  cJSON* params = cJSON_CreateObject();
  cJSON_AddStringToObject(params, "appGUID", kGuid);
  cJSON_AddStringToObject(params, "epoch", Now().c_str());
  cJSON_AddStringToObject(params, "moduleName", kModule);
  cJSON_AddItemToObject(params, "states", states);
  cJSON* request = cJSON_CreateObject();
  cJSON_AddStringToObject(request, "jsonrpc", "2.0");
  cJSON_AddItemToObject(request, "params", params);
  cJSON_AddStringToObject(request, "method", "v1/notifyPluginState");
  return request;
}

std::string ReportByNlohmann() {
  using Json = nlohmann::ordered_json;
  Json states = Json::array();
  for (const State& state : kStates) states.push_back({{"name", state.name}, {"value", state.value}});
  Json params = {{"appGUID", kGuid}, {"epoch", Now()}, {"moduleName", kModule}};
  params["states"] = std::move(states);
  Json request = {{"jsonrpc", "2.0"}};
  request["params"] = std::move(params);
  request["method"] = "v1/notifyPluginState";
  return request.dump();
}

std::string ReportByRapidjson() {
  using rapidjson::StringRef;
  rapidjson::Document request(rapidjson::kObjectType);
  auto& memory = request.GetAllocator();
  rapidjson::Value states(rapidjson::kArrayType);
  for (const State& state : kStates) {
    rapidjson::Value item(rapidjson::kObjectType);
    item.AddMember("name", rapidjson::Value(state.name, memory), memory);
    item.AddMember("value", rapidjson::Value(state.value, memory), memory);
    states.PushBack(item, memory);
  }
  rapidjson::Value params(rapidjson::kObjectType);
  params.AddMember("appGUID", rapidjson::Value(kGuid, memory), memory);
  params.AddMember("epoch", rapidjson::Value(Now().c_str(), memory), memory);
  params.AddMember("moduleName", rapidjson::Value(kModule, memory), memory);
  params.AddMember("states", states, memory);
  request.AddMember("jsonrpc", "2.0", memory);
  request.AddMember("params", params, memory);
  request.AddMember("method", "v1/notifyPluginState", memory);
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  request.Accept(writer);
  return buffer.GetString();
}

Row StateReport() {
  for (const std::string& other : {PrintAndDelete(ReportByHand()), ReportByNlohmann(), ReportByRapidjson()}) {
    RequireSame("state report", PrintAndDelete(ReportByLibrary()), other);
  }
  const auto text = [](auto make) {
    return Repeat([make] {
      std::string made = make();
      benchmark::DoNotOptimize(made);
    });
  };
  return {"state report of 5 items",
          {"CStatesPluginJson", Repeat([] { Discard(ReportByLibrary()); })},
          {{{"cJSON by hand", Repeat([] { Discard(ReportByHand()); })}, Aim{1.5}},
           {{"nlohmann", text(ReportByNlohmann)}, Aim{0.5}},
           {{"rapidjson DOM", text(ReportByRapidjson)}, std::nullopt}}};
}

// ---- Received texts

std::string CommandText(std::size_t commands) {
  std::string text =
      R"({"jsonrpc":"2.0","params":{"appGUID":"7a1c9f6e","epoch":"1700000000","commandId":"c-1",)"
      R"("commandSource":"remote","moduleName":"front-camera","commands":[)";
  for (std::size_t i = 0; i < commands; ++i) {
    text += R"({"name":"move)" + std::to_string(i) +
            R"(","params":[{"name":"speed","value":21.5},{"name":"mode","value":"auto"}]},)";
  }
  text.back() = ']';
  return text + R"(},"method":"v1/notifyPluginCommand"})";
}

std::string AlarmText(std::size_t alarms) {
  std::string text = R"({"jsonrpc":"2.0","params":{"version":"3","modules":[{"moduleName":"front-camera",)"
                     R"("epoch":"1700000000","alarms":[)";
  for (std::size_t i = 0; i < alarms; ++i) {
    text += R"({"name":"alarm)" + std::to_string(i) +
            R"(","enabled":true,"params":[{"name":"threshold","value":21.5}]},)";
  }
  text.back() = ']';
  return text + R"(}]},"method":"v1/notifyPluginAlarmUpdate"})";
}

Row Classification() {
  constexpr std::size_t kSize = 1024;
  std::string text = CommandText(9);
  const std::string front = R"({"note":")";
  text = front + std::string(kSize - text.size() - front.size() - 1, 'x') + "\"," + text.substr(1);
  const Subject ours = {"GetMessageType", Repeat([text] {
                          std::string type;
                          cJSON_free(CPluginUtil::GetMessageType(text.c_str(), &type));
                          benchmark::DoNotOptimize(type);
                        })};
  const Subject parse = {"cJSON_Parse + cJSON_Delete",
                         Repeat([text] { cJSON_Delete(cJSON_Parse(text.c_str())); })};
  return {"type of a text of " + std::to_string(text.size()) + " bytes", ours, {{parse, Aim{1.1}}}};
}

Subject Commands(std::size_t commands, double units) {
  return {std::to_string(commands) + " commands", Repeat([text = CommandText(commands)] {
            const CCommandPluginJson request(text.c_str(), "");
            benchmark::DoNotOptimize(request.m_commands.size());
          }),
          units};
}

Subject Alarms(std::size_t alarms) {
  return {std::to_string(alarms) + " alarms", Repeat([text = AlarmText(alarms)] {
            const CAlarmUpdatePluginJson request(text.c_str(), "");
            benchmark::DoNotOptimize(request.GetAlarms("front-camera").size());
          }),
          static_cast<double>(alarms)};
}

Row CommandRequest() {
  const Subject copy = {"parse + deep copy + deletes", Repeat([text = CommandText(10)] {
                          cJSON* document = cJSON_Parse(text.c_str());
                          cJSON* params = cJSON_GetObjectItem(document, "params");
                          cJSON_Delete(cJSON_Duplicate(cJSON_GetObjectItem(params, "commands"), 1));
                          cJSON_Delete(document);
                        })};
  return {"CCommandPluginJson, 10 commands", Commands(10, 1), {{copy, Aim{1.4}}}};
}

// ---- Registration

Row RegistrationRow() {
  const auto* model = new Registration(10, 50);  // used until the process ends
  RequireSame("registration", PrintAndDelete(model->BuildByLibrary()), PrintAndDelete(model->BuildByHand()));
  return {"registration of 10 x 50 items",
          {"CUpdateParams", Repeat([model] { cJSON_Delete(model->BuildByLibrary()); })},
          {{{"cJSON by hand", Repeat([model] { cJSON_Delete(model->BuildByHand()); })}, Aim{1.5}}}};
}

/// Modules of ten items; `build` is one of the two ways.
Subject Model(const std::string& name, std::size_t items, cJSON* (Registration::*build)() const) {
  const auto* model = new Registration(items / 10, 10);  // used until the process ends
  return {name, Repeat([model, build] { cJSON_Delete((model->*build)()); }), static_cast<double>(items)};
}

Row ModelRow(std::size_t scale, std::optional<Aim> aim) {
  const std::size_t items = 10 * scale;
  return {std::to_string(scale) + "x the model, per item",
          Model(std::to_string(items) + " items", items, &Registration::BuildByLibrary),
          {{Model("10 items", 10, &Registration::BuildByLibrary), aim},
           {Model("as many by hand", items, &Registration::BuildByHand), std::nullopt}}};
}

}  // namespace

std::string Family() {
  return "messages";
}

std::vector<Row> Rows() {
  UTL_LOGInit("benchmark", nullptr);
  UTL_LOGSetWriteToStdout(false);
  UTL_LOGSetLevel(UTL_LOG_INFO, 0);
  std::vector<Row> rows = {StateReport(), RegistrationRow(), Classification(), CommandRequest()};
  for (const std::size_t scale : {10U, 100U}) {
    const std::string times = std::to_string(scale) + "x the ";
    const auto commands = [](std::size_t count) { return Commands(count, static_cast<double>(count)); };
    rows.push_back({times + "commands, per command", commands(10 * scale), {{commands(10), Aim{1.5}}}});
    rows.push_back({times + "alarms, per alarm", Alarms(10 * scale), {{Alarms(10), Aim{1.5}}}});
    rows.push_back(ModelRow(scale, Aim{1.5}));
  }
  rows.push_back(ModelRow(500, std::nullopt));  // beyond a core's cache
  return rows;
}

}  // namespace bench
