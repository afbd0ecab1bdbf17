// Against the shipped library, as a plugin uses it: objects, virtual calls and exceptions cross its border.
#include <gtest/gtest.h>

#include <memory>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "MetricsPluginJson.h"
#include "PluginData.h"
#include "StatesPluginJson.h"

namespace {

TEST(SharedLibrary, EveryBuilderSignsWhatTheParsersVerify) {
  CUpdateParams model("a1b2", "Watcher", "", AppType::ib, "1.0.0", "", "", {});
  const std::unique_ptr<CUpdatePluginJson> update(model.GetNotifyPluginUpdate("v1", "key"));
  CStatesPluginJson states;
  CMetricsPluginJson metrics;
  CEventsPluginJson events;
  CAlertsPluginJson alerts;
  CCommandAcksPluginJson acks;
  CLocalCommandPluginJson local;
  CBasePluginObject* const builders[] = {&states, &metrics, &events, &alerts, &acks, &local, update.get()};
  for (CBasePluginObject* builder : builders) {
    builder->m_version = ApiVersion::v2;
    builder->m_accessKey = "key";
    cJSON* const request = builder->GetJsonrpcRequest(cJSON_CreateObject());
    char* const text = cJSON_PrintUnformatted(request);
    EXPECT_TRUE(CCommandPluginJson(text, "key").m_validSignature) << text;
    EXPECT_TRUE(CAlarmUpdatePluginJson(text, "key").m_validSignature) << text;
    cJSON_free(text);
    cJSON_Delete(request);
  }
}

TEST(SharedLibrary, ExceptionsAreCaughtByNameAndByBase) {
  struct Derived : CPluginException {  // the virtual base reaches what() through a thunk
    using CPluginException::CPluginException;
  };
  EXPECT_THROW(CStatesPluginJson().CreateStatesItemJson(nullptr, "on"), CPluginException);
  try {
    throw Derived("derived", 7);
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "derived");
    EXPECT_EQ(dynamic_cast<const CPluginException&>(error).getErrorNumber(), 7);
  }
}

}  // namespace
