/// @file
/// The shortest plugin: its first message, printed and thrown away.
#include "StatesPluginJson.h"

int main() {
  CStatesPluginJson builder;
  builder.m_appGUID = "a1b2";
  builder.m_moduleName = "camera";
  cJSON* states = cJSON_CreateArray();
  cJSON_AddItemToArray(states, builder.CreateStatesItemJson("power", "on"));
  cJSON* request = builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states));
  char* text = cJSON_PrintUnformatted(request);
  const bool printed = text != nullptr;
  cJSON_free(text);
  cJSON_Delete(request);
  return printed ? 0 : 1;
}
