// Watches thresholds that the agent sets: reads alarm updates and samples from standard input, and prints the
// alerts that it raises and clears, one request on each line.
//
//   g++ -std=c++17 alarm_thresholds.cpp -o alarm_thresholds $(pkg-config --cflags --libs pluginsdk)
//   ./alarm_thresholds KEYFILE < lines     the access key is what KEYFILE (chmod 600) holds
//
// A line that begins with "{" is a message of the agent; its alarms have the params "threshold" and "clear".
// Any other line is a sample: MODULE ALARM VALUE, such as "oven overheat 81.5". An alert is raised when a
// sample is above the threshold and cleared when one is below "clear"; in between it stays as it is, so that
// a value that trembles around the threshold does not flood the agent.
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "AlertsPluginJson.h"
#include "JsonTree.h"
#include "LineProgram.h"
#include "Parameters.h"
#include "ReadKey.h"
#include "Request.h"

namespace demo {
namespace {

constexpr double kMost = 1e15;  // values of more digits cannot be reported as metrics either

struct Alarm {
  double threshold;
  double clear;
  bool raised = false;
};
using Alarms = std::map<std::string, Alarm>;

/// The alarms of a module as an update defines them.
Alarms Defined(const CAlarmUpdatePluginJson& update, const std::string& module) {
  Alarms alarms;
  for (cJSON* entry : update.GetAlarms(module)) {  // the trees stay the update's
    Parameters params = ParametersOf(entry);
    const double threshold = NumberFrom(params["threshold"], -kMost, kMost);
    const double clear = NumberFrom(params["clear"], -kMost, threshold);
    alarms[CPluginUtil::GetJSONStringFieldValue(entry, "name")] = {threshold, clear};
  }
  return alarms;
}

class Watch {
 public:
  explicit Watch(const std::string& accessKey) {
    m_alerts.m_appGUID = "9d3c1f52-0f6e-4d0b-8a55-3f1f6f7f2b10";
    m_alerts.m_version = ApiVersion::v2;
    m_alerts.m_accessKey = accessKey;
  }

  void Handle(const std::string& line) { line.rfind('{', 0) == 0 ? Update(line) : Sample(line); }

 private:
  struct Module {
    long epoch = 0;
    Alarms alarms;
  };

  void Update(const std::string& text) {
    // With limits, an unsigned text does not get around the signature, and none takes gigabytes to verify.
    const CAlarmUpdatePluginJson update(text.c_str(), m_alerts.m_accessKey, VerificationLimits());
    if (!update.m_validSignature) {
      throw std::invalid_argument("not signed with our key");
    }
    std::set<std::string> names;  // GetAlarms merges modules that share a name
    for (cJSON* module : update.m_modules) {
      names.insert(CPluginUtil::GetJSONStringFieldValue(module, "moduleName"));
    }
    for (const std::string& name : names) {
      const std::string epoch = update.GetAlarmsUpdateEpochTime(name);  // null only for names not in there
      Redefine(name, NumberFrom(epoch, 0L, std::numeric_limits<long>::max()), Defined(update, name));
    }
  }

  /// What can be wrong with the new alarms has thrown before: those of a module take effect all or not at
  /// all.
  void Redefine(const std::string& name, long epoch, Alarms alarms) {
    Module& module = m_modules[name];
    // A signature does not say when: a recorded update verifies again, but its time gives it away.
    if (epoch < module.epoch) {
      throw std::invalid_argument("older than the last update of module " + name);
    }
    for (const auto& [alarmName, former] : module.alarms) {
      const auto found = alarms.find(alarmName);
      if (found != alarms.end()) {
        found->second.raised = former.raised;
      } else if (former.raised) {
        Send(name, alarmName, Action::resolve, "no longer watched");  // nothing else would ever clear it
      }
    }
    module = {epoch, std::move(alarms)};
  }

  void Sample(const std::string& line) {
    std::istringstream words(line);
    std::string module, name, value;
    words >> module >> name >> value;
    const double number = NumberFrom(value, -kMost, kMost);
    Alarm& alarm = Watched(module, name);
    const bool raised = alarm.raised ? number >= alarm.clear : number > alarm.threshold;
    if (raised == alarm.raised) return;
    Send(module, name, raised ? Action::trigger : Action::resolve, "value " + value);
    alarm.raised = raised;  // after it was told; else the next sample tries again
  }

  /// @throws std::invalid_argument when no update has defined the alarm
  Alarm& Watched(const std::string& module, const std::string& name) {
    const auto owner = m_modules.find(module);
    if (owner != m_modules.end()) {
      const auto alarm = owner->second.alarms.find(name);
      if (alarm != owner->second.alarms.end()) return alarm->second;
    }
    throw std::invalid_argument("module \"" + module + "\" has no alarm \"" + name + "\" to watch");
  }

  void Send(const std::string& module, const std::string& alarm, const std::string& action,
            const std::string& message) {
    m_alerts.m_moduleName = module;
    JsonTree items = Owned(cJSON_CreateArray());
    Append(items,
           Owned(CAlertsPluginJson::CreateAlarmsItemJson(alarm.c_str(), action.c_str(), message.c_str())));
    JsonTree params = Owned(m_alerts.CreateAlarmsParamsObj(items.get()));
    HandedOver(items);
    SendLine(Wrapped(m_alerts, params).get());
  }

  CAlertsPluginJson m_alerts;
  std::map<std::string, Module> m_modules;
};

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  return demo::Run(argv[0], [&] {
    demo::Watch watch(demo::ReadKey(argc > 1 ? argv[1] : ""));
    demo::ForEachLine([&](const std::string& line) { watch.Handle(line); });
  });
}
