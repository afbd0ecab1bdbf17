// Against the shipped library, as a plugin uses it: what it exports is enough, and objects, virtual calls,
// type information and exceptions cross its border.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "AlertsPluginJson.h"
#include "BasePluginObject.h"
#include "CommandAcksPluginJson.h"
#include "EventsPluginJson.h"
#include "LocalCommandPluginJson.h"
#include "MetricsPluginJson.h"
#include "PluginData.h"
#include "StatesPluginJson.h"
#include "UpdatePluginJson.h"
#include "Utl_Log.h"
#include "Utl_file.h"
#include "Utl_mutex.h"
#include "Utl_thread.h"
#include "Utl_time.h"
#include "vpl__error.h"

namespace {

using Tree = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

Tree Own(cJSON* tree) {
  return {tree, &cJSON_Delete};
}

std::string Printed(const Tree& tree) {
  char* text = cJSON_PrintUnformatted(tree.get());
  std::string copy = text == nullptr ? "" : text;
  cJSON_free(text);
  return copy;
}

// Through the base class: the virtual tables of the library are in use.
Tree SignedRequest(CBasePluginObject& builder) {
  builder.m_version = ApiVersion::v2;
  builder.m_accessKey = "key";
  return Own(builder.GetJsonrpcRequest(cJSON_CreateObject()));
}

TEST(SharedLibrary, EveryBuilderSignsWhatTheParsersVerify) {
  CStatesPluginJson states;
  CMetricsPluginJson metrics;
  CEventsPluginJson events;
  CAlertsPluginJson alerts;
  CCommandAcksPluginJson acks;
  CLocalCommandPluginJson localCommands;
  CUpdatePluginJson update;
  CBasePluginObject* builders[] = {&states, &metrics, &events, &alerts, &acks, &localCommands, &update};
  for (CBasePluginObject* builder : builders) {
    const std::string text = Printed(SignedRequest(*builder));
    SCOPED_TRACE(text);
    EXPECT_TRUE(CCommandPluginJson(text.c_str(), "key").m_validSignature);
    EXPECT_TRUE(CAlarmUpdatePluginJson(text.c_str(), "key").m_validSignature);
    EXPECT_FALSE(CCommandPluginJson(text.c_str(), "another key").m_validSignature);
  }
}

TEST(SharedLibrary, DescriptionBecomesARegistration) {
  CUpdateState power("power", "", "Power", "", DisplayType::string);
  CUpdateModule module("camera", "", "", {}, {&power}, {}, {}, {}, {});
  CUpdateParams plugin("a1b2", "Watcher", "", AppType::ib, "1.0.0", "", "", {&module});
  const std::unique_ptr<CUpdatePluginJson> builder(plugin.GetNotifyPluginUpdate("v1", ""));
  const std::string text = Printed(Own(builder->RenewUpdateJsonObject(true)));
  EXPECT_NE(text.find(R"("modules":[{"moduleName":"camera","states":[{"name":"power",)"), std::string::npos)
      << text;
}

TEST(SharedLibrary, ExceptionsAreCaughtByNameAndByBase) {
  CStatesPluginJson builder;
  EXPECT_THROW(builder.CreateStatesItemJson(nullptr, "on"), CPluginException);
  try {
    builder.CreateStatesItemJson(nullptr, "on");
    FAIL() << "a missing name was accepted";
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "name is NULL");
    const auto* own = dynamic_cast<const CPluginException*>(&error);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->getErrorNumber(), 3);
  }
}

// A plugin may derive from the exported classes; the virtual base reaches what() through a thunk.
TEST(SharedLibrary, ExceptionsOfAPluginDeriveFromOurs) {
  class CDerived : public CPluginException {
   public:
    using CPluginException::CPluginException;
  };
  try {
    throw CDerived("derived", 7);
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "derived");
  }
}

// One operation of each header of the utility layer, with a result that only the real one gives.
TEST(SharedLibrary, UtilityLayerIsExported) {
  EXPECT_EQ(VPLError_XlatErrno(ENOENT), VPL_ERR_NOENT);
  UTLTime_CalendarTime now = {};
  UTLTime_GetCalendarTimeLocal(&now);
  EXPECT_GE(now.year, 2024);
  UTLMutex__t mutex = {};
  EXPECT_EQ(UTLMutex_Init(&mutex), VPL_OK);
  EXPECT_EQ(UTLMutex_Unlock(&mutex), VPL_ERR_PERM);
  EXPECT_EQ(UTLMutex_Destroy(&mutex), VPL_OK);
  EXPECT_EQ(UTLDetachableThread_Self(), static_cast<std::uint64_t>(gettid()));
  EXPECT_EQ(UTLFile_Delete("/nonexistent/file"), VPL_ERR_NOENT);
  char text[] = "pw=secret&x";
  EXPECT_EQ(maskText(text, sizeof text - 1, "pw=", "&"), 6U);
  EXPECT_STREQ(text, "pw=*&x");
}

}  // namespace
