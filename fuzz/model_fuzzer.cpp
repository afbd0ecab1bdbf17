// The description model and every builder, driven by a byte stream: arbitrary texts, lists and orders.
// Exceptions of the message layer are answers; anything else, a leak included, is a fault.
#include <fuzzer/FuzzedDataProvider.h>

#include <list>
#include <memory>
#include <vector>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "FuzzSupport.h"
#include "JsonHandle_internal.h"
#include "LocalCommandPluginJson.h"
#include "MetricsPluginJson.h"
#include "PluginData.h"
#include "StatesPluginJson.h"
#include "UpdatePluginJson.h"

namespace {

using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;
using Texts = std::map<std::string, std::list<std::string>>;

class Driver {
 public:
  Driver(const uint8_t* data, size_t size) : m_bytes(data, size) {}

  void Run() {
    while (m_bytes.remaining_bytes() > 0) {
      try {
        Step();
      } catch (const CPluginException& e) {
        FUZZ_CHECK(e.getErrorNumber() >= 1 && e.getErrorNumber() <= 6 && *e.what() != '\0');
      }
    }
  }

 private:
  // Mostly words that get past the checks, so that the deeper ones are reached too.
  std::string Text() {
    static const char* const kWords[] = {
        "",     "name", "string", "table", "link",     "valueFromProperty", "displayOn",     "datetime",
        "list", "file", "switch", "1.2.3", "checkbox", "defaultValue",      "displayValues", "Cat-1"};
    if (m_bytes.ConsumeIntegralInRange(0, 3) != 0) return m_bytes.PickValueInArray(kWords);
    return m_bytes.ConsumeRandomLengthString(80);
  }
  // Kept until the end: builders take texts by pointer.
  const char* MaybeText() { return m_bytes.ConsumeBool() ? nullptr : m_texts.emplace_back(Text()).c_str(); }
  std::list<std::string> List() {
    std::list<std::string> list;
    while (list.size() < 3 && m_bytes.ConsumeBool()) list.push_back(Text());
    return list;
  }
  Texts Map() {
    Texts map;
    while (map.size() < 3 && m_bytes.ConsumeBool()) map[Text()] = List();
    return map;
  }
  JsonPtr Tree() {
    switch (m_bytes.ConsumeIntegralInRange(0, 4)) {
      case 0:
        return nullptr;
      case 1:
        return JsonPtr(cJSON_CreateArray());
      case 2:
        return JsonPtr(cJSON_CreateString(Text().c_str()));
      default:
        return JsonPtr(cJSON_Parse(m_bytes.ConsumeRandomLengthString(60).c_str()));
    }
  }
  template <typename T, typename Make>
  std::list<T*> Pointers(std::vector<std::unique_ptr<T>>& owned, Make make) {
    std::list<T*> list;
    while (list.size() < 3 && m_bytes.ConsumeBool()) list.push_back(owned.emplace_back(make()).get());
    return list;
  }

  void Step() {
    switch (m_bytes.ConsumeIntegralInRange(0, 5)) {
      case 0:
        return Report<CStatesPluginJson>();
      case 1:
        return Numbers();
      case 2:
        return Alerts();
      case 3:
        return Acknowledge();
      case 4:
        return Register();
      default:
        return LocalCommands();
    }
  }

  void Fill(CBasePluginObject& builder) {
    builder.m_appGUID = Text();
    builder.m_moduleName = Text();
    // Signing costs a millisecond; once in sixteen is enough.
    if (m_bytes.ConsumeIntegralInRange(0, 15) == 0) builder.m_version = "v2";
    if (m_bytes.ConsumeBool()) builder.m_accessKey = "key";
  }

  template <typename Builder>
  void Send(Builder& builder, cJSON* params) {
    JsonPtr owner(params);
    try {
      const JsonPtr request(builder.GetJsonrpcRequest(params, m_bytes.ConsumeBool()));
      owner.release();
      FUZZ_CHECK(JsonText(cJSON_PrintUnformatted(request.get())) != nullptr);
    } catch (const CPluginException& e) {
      if (e.getErrorNumber() == 2) owner.release();  // deleted with the request
      throw;
    }
  }

  template <typename Builder>
  void Report() {
    Builder builder;
    Fill(builder);
    JsonPtr items(cJSON_CreateArray());
    for (int i = 0; i < 4; ++i) {
      JsonPtr value = Tree();
      cJSON* item = m_bytes.ConsumeBool() ? builder.CreateStatesItemJson(MaybeText(), MaybeText())
                                          : builder.CreateStatesItemJson(MaybeText(), value.get());
      if (value && cJSON_GetObjectItem(item, "value") == value.get()) value.release();
      cJSON_AddItemToArray(items.get(), item);
    }
    Send(builder, builder.CreateStatesParamsObj(items.release()));
  }

  void Numbers() {
    CMetricsPluginJson metrics;
    Fill(metrics);
    JsonPtr items(cJSON_CreateArray());
    cJSON_AddItemToArray(items.get(),
                         metrics.CreateMetricsItemJson(MaybeText(), m_bytes.ConsumeFloatingPoint<double>()));
    Send(metrics, metrics.CreateMetricsParamsObj(items.release()));
    CEventsPluginJson events;
    Fill(events);
    JsonPtr list(cJSON_CreateArray());
    cJSON_AddItemToArray(list.get(), events.CreateEventsItemJson(MaybeText(), MaybeText()));
    Send(events, events.CreateEventsParamsObj(list.release()));
  }

  void Alerts() {
    CAlertsPluginJson builder;
    Fill(builder);
    JsonPtr items(cJSON_CreateArray());
    cJSON_AddItemToArray(items.get(), builder.CreateAlarmsItemJson(MaybeText(), MaybeText(), MaybeText()));
    cJSON* params = builder.CreateAlarmsParamsObj(items.get());
    items.release();
    Send(builder, params);
  }

  void Acknowledge() {
    const CCommandPluginJson command(m_bytes.ConsumeRandomLengthString(60).c_str(), "");
    CCommandAcksPluginJson builder;
    Fill(builder);
    builder.m_commandPluginJson = const_cast<CCommandPluginJson*>(&command);
    JsonPtr acks = Tree();
    cJSON* params = builder.CreateCommandAcksAckedParamsObj(acks.get());
    if (acks && cJSON_GetObjectItem(params, "commandAcks") == acks.get()) acks.release();
    Send(builder, params);
  }

  std::unique_ptr<CUpdateCommand> Command() {
    auto params = Pointers<CUpdateCommandParam>(m_commandParams, [&] {
      return std::make_unique<CUpdateCommandParam>(Text(), Text(), Text(), Text(), m_bytes.ConsumeBool(),
                                                   Text(), Text(), List(), Text(), Text());
    });
    return std::make_unique<CUpdateCommand>(Text(), Text(), Text(), Text(), Text(), params, Map());
  }
  std::unique_ptr<CUpdateAlarm> Alarm() {
    auto params = Pointers<CUpdateAlarmParam>(m_alarmParams, [&] {
      return std::make_unique<CUpdateAlarmParam>(Text(), Text(), Text(), Text(), m_bytes.ConsumeBool(),
                                                 Text(), Text(), List());
    });
    return std::make_unique<CUpdateAlarm>(Text(), Text(), Text(), Text(), params);
  }
  std::unique_ptr<CUpdateProperty> Property() {
    std::list<std::map<std::string, std::string>> rows;
    while (rows.size() < 3 && m_bytes.ConsumeBool()) rows.push_back({{Text(), Text()}, {Text(), Text()}});
    return std::make_unique<CUpdateProperty>(Text(), Text(), Text(), Text(), Text(), Text(), rows, Map());
  }
  std::unique_ptr<CUpdateModule> Module() {
    return std::make_unique<CUpdateModule>(
        Text(), Text(), Text(), Pointers<CUpdateProperty>(m_properties, [&] { return Property(); }),
        Pointers<CUpdateState>(
            m_states, [&] { return std::make_unique<CUpdateState>(Text(), Text(), Text(), Text(), Text()); }),
        Pointers<CUpdateMetric>(
            m_metrics,
            [&] { return std::make_unique<CUpdateMetric>(Text(), Text(), Text(), Text(), Text(), Text()); }),
        Pointers<CUpdateEvent>(
            m_events, [&] { return std::make_unique<CUpdateEvent>(Text(), Text(), Text(), Text()); }),
        Pointers<CUpdateCommand>(m_commands, [&] { return Command(); }),
        Pointers<CUpdateAlarm>(m_alarms, [&] { return Alarm(); }));
  }

  void Register() {
    CUpdateParams root(Text(), Text(), Text(), Text(), Text(), Text(), Text(),
                       Pointers<CUpdateModule>(m_modules, [&] { return Module(); }));
    std::unique_ptr<CUpdatePluginJson> builder;
    try {
      builder.reset(
          root.GetNotifyPluginUpdate(m_bytes.ConsumeIntegralInRange(0, 15) == 0 ? "v2" : "v1", "key"));
    } catch (const CPluginException&) {
      builder.reset(root.GetNotifyPluginUpdate());
      FUZZ_CHECK(builder != nullptr && builder->m_request == nullptr);
      throw;
    }
    const JsonPtr renewed(builder->RenewUpdateJsonObject(m_bytes.ConsumeBool()));
    FUZZ_CHECK(renewed != nullptr);
    const JsonPtr former(builder->m_request);
    root.UpdateNotifyPluginUpdateData();
    FUZZ_CHECK(builder->m_request != former.get());
  }

  void LocalCommands() {
    std::vector<std::unique_ptr<CLocalCommandParam>> params;
    std::vector<std::unique_ptr<CLocalCommand>> commands;
    std::list<CLocalCommand*> list = Pointers<CLocalCommand>(commands, [&] {
      std::list<CLocalCommandParam*> values = Pointers<CLocalCommandParam>(
          params, [&] { return std::make_unique<CLocalCommandParam>(Text(), Text()); });
      return std::make_unique<CLocalCommand>(Text(), values);
    });
    CLocalCommandParams root(Text(), Text(), Text(), Text(), list);
    std::unique_ptr<CLocalCommandPluginJson> builder;
    try {
      builder.reset(root.GetNotifyPluginLocalCommand("v1", nullptr));
    } catch (const CPluginException&) {
      builder.reset(root.GetNotifyPluginLocalCommand());
      throw;
    }
    const JsonPtr request(builder->m_request);
    FUZZ_CHECK(request != nullptr);
  }

  FuzzedDataProvider m_bytes;
  std::list<std::string> m_texts;
  std::vector<std::unique_ptr<CUpdateCommandParam>> m_commandParams;
  std::vector<std::unique_ptr<CUpdateAlarmParam>> m_alarmParams;
  std::vector<std::unique_ptr<CUpdateProperty>> m_properties;
  std::vector<std::unique_ptr<CUpdateState>> m_states;
  std::vector<std::unique_ptr<CUpdateMetric>> m_metrics;
  std::vector<std::unique_ptr<CUpdateEvent>> m_events;
  std::vector<std::unique_ptr<CUpdateCommand>> m_commands;
  std::vector<std::unique_ptr<CUpdateAlarm>> m_alarms;
  std::vector<std::unique_ptr<CUpdateModule>> m_modules;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool silenced = (SilenceLog(), true);
  (void)silenced;             // only its initialisation matters
  if (size > 4096) return 0;  // a longer stream repeats what a shorter one does
  Driver(data, size).Run();
  return 0;
}
