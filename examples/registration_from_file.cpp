// Registers a plugin that is described in a file: reads the file into the description model, prints the
// registration, prints it again with a new time stamp, and once more after the model has changed.
//
//   g++ -std=c++17 registration_from_file.cpp -o register $(pkg-config --cflags --libs pluginsdk)
//   ./register registration.json [KEYFILE]     with KEYFILE (chmod 600) API version v2, signed
//
// The form of the file is this program's own; registration.json shows all of it, Description.h reads it.
#include <stdexcept>
#include <string>

#include "Description.h"
#include "JsonPlace.h"
#include "JsonTree.h"
#include "LineProgram.h"
#include "ReadKey.h"

namespace demo {
namespace {

void Register(const std::string& path, const std::string& keyFile) {
  const JsonTree tree = ReadJson(path);
  const JsonPlace file(tree.get());
  Description description(file);
  const std::string accessKey = keyFile.empty() ? "" : ReadKey(keyFile);
  try {
    SendLine(description.Register(keyFile.empty() ? ApiVersion::v1 : ApiVersion::v2, accessKey));
  } catch (const CPluginException& error) {
    file.Refuse(error.what());  // what belongs to no module
  }
  SendLine(description.Renew().get());      // the agent has forgotten us, or the connection is new
  SendLine(description.Withdraw("timer"));  // what the plugin offers has changed
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  return demo::Run(argv[0], [&] {
    if (argc < 2) {
      throw std::invalid_argument("needs the path of a description");
    }
    demo::Register(argv[1], argc > 2 ? argv[2] : "");
  });
}
