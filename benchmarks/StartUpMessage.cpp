/// @file
/// The shortest plugin: its first message, printed and thrown away. Signed when an access key is given.
#include "StatesPluginJson.h"

int main(int count, char** arguments) {
  CStatesPluginJson builder;
  builder.m_appGUID = "a1b2";
  builder.m_moduleName = "camera";
  if (count > 1) {
    builder.m_version = ApiVersion::v2;
    builder.m_accessKey = arguments[1];
  }
  cJSON* states = cJSON_CreateArray();
  cJSON_AddItemToArray(states, builder.CreateStatesItemJson("power", "on"));
  cJSON* request = builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(states));
  char* text = cJSON_PrintUnformatted(request);
  const bool printed = text != nullptr;
  cJSON_free(text);
  cJSON_Delete(request);
  return printed ? 0 : 1;
}
