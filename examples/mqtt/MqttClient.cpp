#include "MqttClient.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Program.h"

namespace demo::mqtt {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kAtLeastOnce = 1;        // quality of service
constexpr int kKeepAliveSeconds = 15;  // after one and a half of these a silent peer counts as gone
constexpr int kFirstRefusal = 0x80;    // reason codes of MQTT from here on are failures
constexpr milliseconds kFirstPause{100};
constexpr milliseconds kLongestPause{5000};

/// libmosquitto wants one call before any other, and one after all.
struct Library {
  Library() { mosquitto_lib_init(); }
  ~Library() { mosquitto_lib_cleanup(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

/// The connection has ended, which may show first when something is written. It is made again.
bool IsLoss(int result) {
  return result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO;
}

void Require(int result, const char* what) {
  if (result != MOSQ_ERR_SUCCESS && !IsLoss(result)) {
    throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(result));
  }
}

/// A broker that is starting or overloaded may take us later; any other refusal is for good.
bool IsTransient(int reason) {
  return reason == MQTT_RC_SERVER_UNAVAILABLE || reason == MQTT_RC_SERVER_BUSY;
}

}  // namespace

/// These only note what has happened: libmosquitto holds locks while it calls them, so that publishing from
/// here would take its locks in another order than it does itself; and no exception may pass through its C
/// code.
struct MqttClient::Callbacks {
  static void Note(void* self, Handler handler, int reason, const mosquitto_message* message) noexcept {
    auto& client = *static_cast<MqttClient*>(self);
    try {
      Event& event = client.m_events.emplace_back(Event{handler, reason, {}, {}});
      if (message != nullptr) {
        event.topic = message->topic;
        event.text.assign(static_cast<const char*>(message->payload),
                          static_cast<std::size_t>(message->payloadlen));
      }
    } catch (...) {
      client.m_error = std::current_exception();
    }
  }
  static void Connect(mosquitto*, void* self, int reason, int /*flags*/, const mosquitto_property*) {
    Note(self, &MqttClient::OnConnected, reason, nullptr);
  }
  static void Disconnect(mosquitto*, void* self, int reason, const mosquitto_property*) {
    Note(self, &MqttClient::OnLost, reason, nullptr);
  }
  static void Subscribe(mosquitto*, void* self, int /*id*/, int, const int* granted,
                        const mosquitto_property*) {
    Note(self, &MqttClient::OnSubscribed, *granted, nullptr);
  }
  static void Publish(mosquitto*, void* self, int /*id*/, int reason, const mosquitto_property*) {
    Note(self, &MqttClient::OnConfirmed, reason, nullptr);
  }
  static void Message(mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property*) {
    Note(self, &MqttClient::OnMessage, 0, message);
  }
};

void MqttClient::Deleter::operator()(mosquitto* handle) const noexcept {
  mosquitto_destroy(handle);
}

MqttClient::MqttClient(const Broker& broker, const std::string& clientId, const std::string& topic,
                       ClientOwner& owner)
    : m_owner(owner),
      m_topic(topic),
      m_pause(kFirstPause),
      m_random(static_cast<std::minstd_rand::result_type>(std::hash<std::string>{}(clientId)&0x7fffffff)) {
  static const Library library;
  m_handle.reset(mosquitto_new(clientId.c_str(), true, this));
  mosquitto* const handle = m_handle.get();
  if (handle == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mosquitto_new");
  }
  // Only version 5 of the protocol tells the sender that a message was refused.
  Require(mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5), "MQTT 5");
  // Without it small packets wait for the confirmation of those before.
  Require(mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1), "TCP_NODELAY");
  if (!broker.user.empty()) {
    Require(mosquitto_username_pw_set(handle, broker.user.c_str(), broker.password.c_str()), "user name");
  }
  mosquitto_connect_v5_callback_set(handle, Callbacks::Connect);
  mosquitto_disconnect_v5_callback_set(handle, Callbacks::Disconnect);
  mosquitto_subscribe_v5_callback_set(handle, Callbacks::Subscribe);
  mosquitto_publish_v5_callback_set(handle, Callbacks::Publish);
  mosquitto_message_v5_callback_set(handle, Callbacks::Message);
  // A broker that is not up yet is no error, and neither is a name that cannot be resolved yet.
  const int result = mosquitto_connect_async(handle, broker.host.c_str(), broker.port, kKeepAliveSeconds);
  if (result != MOSQ_ERR_EAI) {
    Require(result, "address of the broker");
  }
  ScheduleConnection();
}

MqttClient::~MqttClient() {
  // A connection that is closed without a word makes the broker suspect a failure. It is not lost now.
  mosquitto_disconnect_v5_callback_set(m_handle.get(), nullptr);
  mosquitto_disconnect_v5(m_handle.get(), 0, nullptr);
}

void MqttClient::Publish(const std::string& topic, const std::string& text) {
  const int result =
      mosquitto_publish_v5(m_handle.get(), nullptr, topic.c_str(), static_cast<int>(text.size()), text.data(),
                           kAtLeastOnce, false, nullptr);
  if (result == MOSQ_ERR_PAYLOAD_SIZE || result == MOSQ_ERR_OVERSIZE_PACKET) {
    m_owner.Refused(std::to_string(text.size()) + " bytes: " + mosquitto_strerror(result));
    return;
  }
  // A message is queued before it is written: what a lost connection does not take goes with the next one.
  Require(result, "publish");
  ++m_unconfirmed;
}

pollfd MqttClient::Awaited() const {
  const bool hasToWrite = mosquitto_want_write(m_handle.get());
  return {mosquitto_socket(m_handle.get()), static_cast<short>(hasToWrite ? POLLIN | POLLOUT : POLLIN), 0};
}

void MqttClient::Serve(short events) {
  mosquitto* const handle = m_handle.get();
  // What these return is handled where a connection ends: in the callback, and by the absence of a socket.
  if ((events & ~POLLOUT) != 0) {
    static_cast<void>(mosquitto_loop_read(handle, 1));
  }
  if ((events & POLLOUT) != 0) {
    static_cast<void>(mosquitto_loop_write(handle, 1));
  }
  static_cast<void>(mosquitto_loop_misc(handle));
  HandleEvents();
  if (mosquitto_socket(handle) < 0 && steady_clock::now() >= m_nextAttempt) {
    ConnectAgain();
  }
}

void MqttClient::HandleEvents() {
  if (m_error != nullptr) {
    std::rethrow_exception(std::exchange(m_error, nullptr));
  }
  // One of them may throw, and one may add others: each leaves the list before it is handled.
  while (!m_events.empty()) {
    const Event event = std::move(m_events.front());
    m_events.pop_front();
    (this->*event.handler)(event);
  }
}

void MqttClient::OnConnected(const Event& event) {
  if (event.reason != MQTT_RC_SUCCESS) {
    if (IsTransient(event.reason)) {
      return;  // the broker hangs up now, and we come again
    }
    throw std::runtime_error(std::string("the broker refuses the connection: ") +
                             mosquitto_reason_string(event.reason));
  }
  Require(mosquitto_subscribe_v5(m_handle.get(), nullptr, m_topic.c_str(), kAtLeastOnce, 0, nullptr),
          "subscribe");
}

void MqttClient::OnSubscribed(const Event& event) {
  if (event.reason >= kFirstRefusal) {
    throw std::runtime_error("the broker refuses the subscription to " + m_topic + ": " +
                             mosquitto_reason_string(event.reason));
  }
  DEMO_LOG(UTL_LOG_INFO, "subscribed to %s", m_topic.c_str());
  m_pause = kFirstPause;
  m_isReady = true;
  m_owner.Subscribed();
}

void MqttClient::OnLost(const Event& event) {
  DEMO_LOG(UTL_LOG_WRN, "the connection with %s is lost: %s", m_topic.c_str(),
           mosquitto_strerror(event.reason));
  m_isReady = false;
  ScheduleConnection();
}

void MqttClient::OnConfirmed(const Event& event) {
  --m_unconfirmed;
  if (event.reason >= kFirstRefusal) {
    m_owner.Refused(mosquitto_reason_string(event.reason));
  }
}

void MqttClient::OnMessage(const Event& event) {
  m_owner.Received(event.topic, event.text);
}

void MqttClient::ConnectAgain() {
  ScheduleConnection();
  const int result = mosquitto_reconnect_async(m_handle.get());
  if (result != MOSQ_ERR_SUCCESS) {
    const std::string why =
        result == MOSQ_ERR_ERRNO ? std::generic_category().message(errno) : mosquitto_strerror(result);
    DEMO_LOG(UTL_LOG_WRN, "no connection to the broker: %s", why.c_str());
  }
}

/// The pauses double, and a random part keeps a fleet from coming back all at once.
void MqttClient::ScheduleConnection() {
  std::uniform_int_distribution<milliseconds::rep> part(m_pause.count() / 2, m_pause.count());
  m_nextAttempt = steady_clock::now() + milliseconds(part(m_random));
  m_pause = std::min(m_pause * 2, kLongestPause);
}

void Serve(const std::vector<MqttClient*>& clients, milliseconds timeout) {
  // poll, not libmosquitto's own loop: that one waits for a single connection, and its select() ends at 1024
  // descriptors.
  std::vector<pollfd> awaited;
  awaited.reserve(clients.size());
  for (const MqttClient* client : clients) {
    awaited.push_back(client->Awaited());
  }
  if (::poll(awaited.data(), awaited.size(), static_cast<int>(timeout.count())) < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "poll");
  }
  for (std::size_t i = 0; i < clients.size(); ++i) {
    clients[i]->Serve(awaited[i].revents);
  }
}

}  // namespace demo::mqtt
