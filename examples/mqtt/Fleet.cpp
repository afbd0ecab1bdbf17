#include "Fleet.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "RandomText.h"

namespace demo::mqtt {
namespace {

using std::chrono::milliseconds;

/// Messages on their way from plugins to the agent. A broker passes a subscriber so many (20 is common)
/// before it waits for confirmations; the others it queues, up to a limit (1000 is common), and drops the
/// rest. Below the first number nothing is queued: a lost message is one that was lost on its way.
constexpr long kMostOnTheirWay = 16;

/// Without any progress for so long, what is missing counts as lost.
constexpr milliseconds kPatience{10000};

constexpr milliseconds kLookInterval{2};

}  // namespace

Fleet::Fleet(const Broker& broker, const FleetSettings& settings) : m_settings(settings) {
  for (int i = 0; i < settings.plugins; ++i) {
    m_keys[RandomHex(16)] = settings.version == ApiVersion::v2 ? RandomHex(32) : "";
  }
  m_agent = std::make_unique<MqttAgent>(broker, settings.version, m_keys, settings.commandEvery, m_verdicts);
  AwaitAgent();  // before there is anything to miss
  AddPlugins(broker);
}

Fleet::~Fleet() {
  Stop();
}

void Fleet::AddPlugins(const Broker& broker) {
  for (const auto& [appGUID, accessKey] : m_keys) {
    const Identity identity{appGUID, m_settings.version, accessKey};
    m_plugins.push_back(std::make_unique<SensorPlugin>(broker, identity, m_settings.corruptEvery, m_traffic));
  }
}

void Fleet::AwaitAgent() {
  const auto deadline = Clock::now() + kPatience;
  // What it says to plugins that are there already must not reach ours, which will register by themselves.
  while (!m_agent->Connection().IsReady() || m_agent->Connection().Unconfirmed() > 0) {
    if (Clock::now() >= deadline) {
      throw std::runtime_error("no connection to the broker");
    }
    Serve({&m_agent->Connection()}, milliseconds(20));
  }
}

bool Fleet::Run() {
  StartThreads();
  WaitUntil([this] { return m_verdicts.registrations >= m_settings.plugins; });
  const auto start = Clock::now();
  const long before = m_verdicts.received;
  m_isReporting = true;
  if (m_settings.messages > 0) {
    WaitUntil([this] { return m_traffic.reports >= m_settings.messages * m_settings.plugins; });
  } else {
    WaitUntil([this, start] { return Clock::now() >= start + m_settings.time; });
  }
  m_isReporting = false;
  // The last answers are under way when the last report has gone.
  WaitUntil([this] {
    return m_verdicts.received >= m_traffic.sent && m_verdicts.acknowledged >= m_verdicts.commands;
  });
  const std::chrono::duration<double> took = m_lastProgress - start;
  const long messages = m_verdicts.received - before;
  Stop();
  return Print(took.count(), messages);
}

void Fleet::StartThreads() {
  const auto threads = static_cast<std::size_t>(std::min(m_settings.threads, m_settings.plugins));
  for (std::size_t thread = 0; thread < threads; ++thread) {
    std::vector<SensorPlugin*> part;
    for (std::size_t i = thread; i < m_plugins.size(); i += threads) {
      part.push_back(m_plugins[i].get());
    }
    m_threads.push_back(std::async(std::launch::async, [this, part] { DrivePlugins(part); }));
  }
  m_threads.push_back(std::async(std::launch::async, [this] {
    while (!m_isStopped) {
      Serve({&m_agent->Connection()}, milliseconds(20));
    }
  }));
}

void Fleet::DrivePlugins(const std::vector<SensorPlugin*>& plugins) {
  std::vector<MqttClient*> clients;
  clients.reserve(plugins.size());
  for (SensorPlugin* plugin : plugins) {
    clients.push_back(&plugin->Connection());
  }
  while (!m_isStopped) {
    const bool isBusy = m_isReporting && ReportAll(plugins);
    // While reporting, room may appear without a word from the broker.
    Serve(clients, milliseconds(isBusy ? 0 : m_isReporting ? 1 : 20));
  }
}

/// One report of each plugin that may send one. False when there was none.
bool Fleet::ReportAll(const std::vector<SensorPlugin*>& plugins) {
  bool hasReported = false;
  for (SensorPlugin* plugin : plugins) {
    const bool isDone = m_settings.messages > 0 && plugin->Reports() >= m_settings.messages;
    if (!isDone && plugin->Connection().IsReady() && HasRoom()) {
      plugin->Report();
      hasReported = true;
    }
  }
  return hasReported;
}

bool Fleet::HasRoom() const {
  return m_traffic.sent - m_verdicts.received < kMostOnTheirWay;
}

/// Returns also when nothing has moved for too long; the counts tell then what is missing.
template <class Condition>
void Fleet::WaitUntil(Condition condition) {
  const auto movement = [this] { return m_traffic.sent + m_verdicts.received + m_verdicts.acknowledged; };
  m_lastProgress = Clock::now();
  for (long seen = movement(); !condition() && Clock::now() < m_lastProgress + kPatience;) {
    std::this_thread::sleep_for(kLookInterval);
    RethrowFailure();
    if (const long now = movement(); now != seen) {
      seen = now;
      m_lastProgress = Clock::now();
    }
  }
}

/// A thread that has ended before it was told to has failed.
void Fleet::RethrowFailure() {
  for (std::future<void>& thread : m_threads) {
    if (thread.wait_for(milliseconds(0)) == std::future_status::ready) {
      thread.get();
    }
  }
}

void Fleet::Stop() {
  m_isStopped = true;
  for (std::future<void>& thread : m_threads) {
    if (thread.valid()) {
      thread.wait();
    }
  }
}

bool Fleet::Print(double seconds, long messages) const {
  const long lost = m_traffic.sent - m_verdicts.received;
  const long failures = m_verdicts.failures;
  const long commands = m_verdicts.commands;
  const long acknowledged = m_verdicts.acknowledged;
  std::printf("plugins                %d, API version %s\n", m_settings.plugins, m_settings.version.c_str());
  std::printf("messages sent          %ld, of them %ld reports\n", m_traffic.sent.load(),
              m_traffic.reports.load());
  std::printf("messages received      %ld\n", m_verdicts.received.load());
  std::printf("messages lost          %ld\n", lost);
  std::printf("refused by the broker  %ld\n", m_traffic.refused.load());
  std::printf("delivered twice        %ld\n", m_verdicts.repeated.load());
  std::printf("verification failures  %ld (corrupted on purpose: %ld)\n", failures,
              m_traffic.corrupted.load());
  std::printf("commands acknowledged  %ld of %ld\n", acknowledged, commands);
  std::printf("messages per second    %.0f (%ld in %.2f s)\n",
              seconds > 0 ? static_cast<double>(messages) / seconds : 0.0, messages, seconds);
  return lost == 0 && failures == 0 && acknowledged == commands;
}

}  // namespace demo::mqtt
