// Runs the programs against a broker of their own on a loopback port.
#include <sys/prctl.h>

#include <optional>

#include "util/LogTestSupport.h"

namespace {

struct Background {
  explicit Background(const std::string& command) : pid(::fork()) {
    if (pid != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // ends with the test, whatever ends that
    ::execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
    ::_exit(127);
  }
  ~Background() {
    int status = 0;
    // More than once: a broker that has just said that it runs forgets one.
    for (; ::waitpid(pid, &status, WNOHANG) == 0; ::usleep(10000)) ::kill(pid, SIGTERM);
    EXPECT_EQ(status, 0);
  }
  const pid_t pid;
};

struct Mqtt : ::testing::Test {
  void SetUp() override {
    if (::access(MOSQUITTO, X_OK) != 0) GTEST_SKIP() << "mosquitto is not installed";
    const std::string files = "umask 077; printf word >key; mosquitto_passwd -b -c users me word";
    ASSERT_EQ(std::system(("cd " + in + "; " + files).c_str()), 0);
  }
  void StartBroker(const std::string& settings = "") {
    broker.reset();
    std::filesystem::remove(in + "log");  // no word of the broker before
    for (; logtest::ReadFile(in + "log").find(" running\n") == std::string::npos; ::usleep(10000)) {
      if (broker && ::waitpid(broker->pid, nullptr, WNOHANG) == 0) continue;
      port += broker ? 1 : 0;  // this one is taken
      std::ofstream(in + "conf") << settings << "listener " << port << " 127.0.0.1\nuser root\npassword_file "
                                 << in << "users\npid_file " << in << "pid\nlog_dest file " << in << "log\n";
      broker.emplace(MOSQUITTO " -c " + in + "conf");
    }
  }
  std::string With(const std::string& options) const {
    const std::string key = in + "key ", number = std::to_string(port) + " ";
    return " --user me --password-file " + key + "--key-file " + key + "--port " + number + options;
  }
  int Run(const std::string& program, const std::string& options) const {
    return WEXITSTATUS(
        std::system(("timeout 60 " + program + With(options) + " >" + in + "out 2>&1").c_str()));
  }
  const logtest::TemporaryDirectory folder;
  const std::string in = folder.path() + "/";
  int port = 20000 + ::getpid() % 10000;  // below those that the system gives to connections
  std::optional<Background> broker;
};

TEST_F(Mqtt, PluginOutlivesItsBroker) {
  StartBroker();
  const Background plugin(MQTT_PLUGIN + With("--interval-ms 50 --log-root " + in));
  for (int run = 0; run < 2; ++run, StartBroker()) {
    EXPECT_EQ(Run(MQTT_AGENT, "--commands 3"), 0) << logtest::ReadFile(in + "out");
  }
}

TEST_F(Mqtt, EndsTellWhatHappened) {
  const struct {
    const char *settings, *options,
        *output;  // of the broker, of the plugin; what must be found in its output
    int status;
  } rows[] = {
      {"", "--fleet 20 --messages 20", "lost +0\n(.*\n)*.*failures +0 .*\n.*40 of 40\n", 0},
      {"", "--fleet 20 --messages 20 --corrupt 10", "lost +0\n(.*\n)*.*failures +40 .*\n.*20 of 20\n", 1},
      {"", "--key-file /etc/passwd", "/etc/passwd can be read by others", 1},
      {"", "--user nobody", "refuses the connection: Not authorized", 1},
      {"message_size_limit 900\n", "--rounds 1", "refused a message: Packet too large", 1},
  };
  for (const auto& row : rows) {
    StartBroker(row.settings);
    EXPECT_EQ(Run(MQTT_PLUGIN, row.options), row.status) << row.options;
    const std::string out = logtest::ReadFile(in + "out");
    EXPECT_TRUE(std::regex_search(out, std::regex(row.output))) << out;
  }
}

}  // namespace
