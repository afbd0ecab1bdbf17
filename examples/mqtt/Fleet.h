/// @file
/// Many simulated plugins and their agent, in one process, against a real broker.
#pragma once

#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MqttAgent.h"
#include "MqttClient.h"
#include "SensorPlugin.h"

namespace demo::mqtt {

struct FleetSettings {
  std::string version = "v2";
  int plugins = 1;
  int threads = 1;    ///< that the plugins share; the agent has one of its own
  long messages = 0;  ///< reports of each plugin, 0 to go by time
  std::chrono::seconds time{0};
  long corruptEvery = 0;   ///< n-th report of each plugin that is changed after signing, 0 for none
  long commandEvery = 10;  ///< a plugin gets a command after each n-th of its verified reports
};

/// One run of a fleet. Each plugin has a GUID, an access key and a connection of its own; no object is used
/// by two threads at a time.
class Fleet {
 public:
  Fleet(const Broker& broker, const FleetSettings& settings);
  ~Fleet();
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  /// Runs, and prints what came of it. False when a message was lost, refused or not verified, or a command
  /// not acknowledged. @throws what a connection or a builder throws on any of the threads
  bool Run();

 private:
  using Clock = std::chrono::steady_clock;

  void AddPlugins(const Broker& broker);
  void AwaitAgent();
  void StartThreads();
  void DrivePlugins(const std::vector<SensorPlugin*>& plugins);
  bool ReportAll(const std::vector<SensorPlugin*>& plugins);
  bool HasRoom() const;
  template <class Condition>
  void WaitUntil(Condition condition);
  void RethrowFailure();
  void Stop();
  bool Print(double seconds, long messages) const;

  const FleetSettings m_settings;
  Traffic m_traffic;
  Verdicts m_verdicts;
  std::map<std::string, std::string> m_keys;
  std::vector<std::unique_ptr<SensorPlugin>> m_plugins;
  std::unique_ptr<MqttAgent> m_agent;
  std::atomic<bool> m_isReporting{false};
  std::atomic<bool> m_isStopped{false};
  Clock::time_point m_lastProgress;
  std::vector<std::future<void>> m_threads;
};

}  // namespace demo::mqtt
