// Against the shipped library, as a plugin uses it: objects, virtual calls and exceptions cross its border.
#include <gtest/gtest.h>

#include <memory>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "MetricsPluginJson.h"
#include "PluginData.h"
#include "StatesPluginJson.h"
#include "Utl_Log.h"

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
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> request(
        builder->GetJsonrpcRequest(cJSON_CreateObject()), &cJSON_Delete);
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(request.get()),
                                                            &cJSON_free);
    EXPECT_TRUE(CCommandPluginJson(text.get(), "key").m_validSignature) << text.get();
    EXPECT_TRUE(CAlarmUpdatePluginJson(text.get(), "key").m_validSignature) << text.get();
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

TEST(SharedLibrary, UtilityLayerIsExported) {
  char text[] = "pw=secret&x";
  EXPECT_EQ(maskText(text, sizeof text - 1, "pw=", "&"), 6U);
  EXPECT_STREQ(text, "pw=*&x");
}

}  // namespace
