#include "PluginSDK_version.h"

const char* PluginSDK_Version() {
  return PLUGINSDK_VERSION_STRING;
}
