/// @file
/// The messages of the agent. The library has no builders for them, but its base builder makes the envelope
/// and signs it.
#pragma once

#include <ctime>
#include <string>

#include "JsonTree.h"

namespace demo {

/// A whole request of the agent in the printing that is sent, signed under "v2".
std::string ComposeRequest(const std::string& version, const std::string& accessKey, const std::string& api,
                           JsonTree params);

/// {"name": name, "params": [{"name": param, "value": value}]}: a command, or an alarm with its setting.
JsonTree Setting(const std::string& name, const char* param, const std::string& value);

/// Params of notifyPluginCommand. @param commands array
JsonTree CommandParams(const std::string& commandId, const std::string& moduleName, JsonTree commands);

/// Params of notifyPluginAlarmUpdate for one module. @param alarms array
JsonTree AlarmParams(const std::string& moduleName, std::time_t epoch, JsonTree alarms);

}  // namespace demo
