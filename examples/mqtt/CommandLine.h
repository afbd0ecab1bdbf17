/// @file
/// What the command lines of both programs share.
#pragma once

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "MqttClient.h"
#include "Program.h"

namespace demo::mqtt {

/// How to find the broker: the values as text until they have been checked.
struct BrokerOptions {
  std::string host = "127.0.0.1";
  std::string port = "1883";
  std::string user;
  std::string passwordFile;

  void AddTo(std::vector<Option>* options) {
    options->insert(options->begin(),
                    {{"host", &host, "address of the broker (127.0.0.1)"},
                     {"port", &port, "its port (1883)"},
                     {"user", &user, "user name; without it the connection is anonymous"},
                     {"password-file", &passwordFile, "file (chmod 600) with the password"}});
  }
  /// @throws UsageError; what ReadSecret throws
  Broker Checked() const {
    return {host, ParseNumber(port, "--port", 1, 65535), user, ReadSecret(passwordFile)};
  }
};

/// @throws UsageError
inline void CheckVersion(const std::string& version) {
  if (version != "v1" && version != "v2") {
    throw UsageError("--version must be v1 or v2");
  }
}

/// Exit status: that of `body`, 2 for a mistake on the command line, 1 for everything else it throws.
inline int RunMain(int (*body)(int, char**), int argc, char** argv) {
  try {
    return body(argc, argv);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  } catch (const std::exception& error) {  // CPluginException among them
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  }
  return 1;
}

}  // namespace demo::mqtt
