/// @file
/// A connection to an MQTT broker: the transport of this example. Everything above it deals in texts.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <vector>

struct mosquitto;

namespace demo::mqtt {

/// Where the broker listens, and as whom it knows us. Without a user the connection is anonymous.
struct Broker {
  std::string host = "127.0.0.1";
  int port = 1883;
  std::string user;
  std::string password;
};

/// What a connection tells its owner, from within Serve and on the thread that runs it; a text that is too
/// long already from within Publish. Exceptions leave Serve, or Publish.
class ClientOwner {
 public:
  /// The broker has taken the subscription: on the first connection and on each one after it.
  virtual void Subscribed() = 0;
  virtual void Received(const std::string& topic, const std::string& text) = 0;
  /// A message that will never arrive, and why: the broker may limit sizes, rates and topics.
  virtual void Refused(const std::string& reason) = 0;

 protected:
  ~ClientOwner() = default;
};

/// One connection with one subscription. Connects by itself, and again whenever the connection is lost, after
/// a pause that grows. Messages are published with QoS 1: what the broker has not confirmed is sent again
/// after a reconnection, so it arrives at least once. Sessions are clean: what others publish while we are
/// away is not kept for us. A command that waited for hours would be executed at the wrong time.
///
/// One thread at a time; that may be another one later.
class MqttClient {
 public:
  /// @param clientId no two connections of one broker may have the same; the broker ends the older one
  /// @param owner must outlive the client
  /// @throws std::runtime_error for settings that libmosquitto does not take
  MqttClient(const Broker& broker, const std::string& clientId, const std::string& topic, ClientOwner& owner);
  ~MqttClient();
  MqttClient(const MqttClient&) = delete;
  MqttClient& operator=(const MqttClient&) = delete;

  /// Connected and subscribed.
  bool IsReady() const { return m_isReady; }

  /// Queues the text; without a connection it goes with the next one. A text that is too long for the broker
  /// is told to the owner, at once or when the broker answers.
  void Publish(const std::string& topic, const std::string& text);

  /// Messages published that the broker has neither confirmed nor refused.
  std::size_t Unconfirmed() const { return m_unconfirmed; }

  /// What to wait for; ignored by poll() while there is no connection.
  pollfd Awaited() const;

  /// Does what is due: reads, writes, keeps the connection alive, or makes a new one.
  /// @param events what poll() found
  /// @throws std::runtime_error when the broker refuses the connection or the subscription, which no second
  /// attempt would mend; and whatever the owner throws
  void Serve(short events);

 private:
  struct Deleter {
    void operator()(mosquitto* handle) const noexcept;
  };
  struct Callbacks;  ///< the functions that libmosquitto calls
  struct Event;
  using Handler = void (MqttClient::*)(const Event&);
  struct Event {
    Handler handler;
    int reason;
    std::string topic, text;
  };

  void HandleEvents();
  void OnConnected(const Event& event);
  void OnSubscribed(const Event& event);
  void OnLost(const Event& event);
  void OnMessage(const Event& event);
  void OnConfirmed(const Event& event);
  void ConnectAgain();
  void ScheduleConnection();

  ClientOwner& m_owner;
  std::string m_topic;
  std::deque<Event> m_events;  ///< noted by the callbacks
  std::exception_ptr m_error;  ///< want of memory for one of them
  bool m_isReady = false;
  std::size_t m_unconfirmed = 0;
  std::chrono::milliseconds m_pause;
  std::chrono::steady_clock::time_point m_nextAttempt;
  std::minstd_rand m_random;
  std::unique_ptr<mosquitto, Deleter> m_handle;  ///< last: it notes events until it is gone
};

/// Waits for any of the connections, at most `timeout`, and serves all of them.
void Serve(const std::vector<MqttClient*>& clients, std::chrono::milliseconds timeout);

}  // namespace demo::mqtt
