// The least that a plugin does: it reports the states of one module, unsigned or signed.
//
//   g++ -std=c++17 state_report.cpp -o state_report $(pkg-config --cflags --libs pluginsdk)
//   ./state_report             API version v1, unsigned
//   ./state_report KEYFILE     API version v2, signed with the key in KEYFILE (chmod 600)
//
// Prints the request. A plugin sends that text, unchanged, over its own channel to the agent.
#include <string>

#include "JsonTree.h"
#include "LineProgram.h"
#include "ReadKey.h"
#include "Request.h"
#include "StatesPluginJson.h"

namespace demo {
namespace {

void Report(const std::string& keyFile) {
  CStatesPluginJson builder;  // may be kept, and used for any number of reports
  builder.m_appGUID = "9d3c1f52-0f6e-4d0b-8a55-3f1f6f7f2b10";
  builder.m_moduleName = "lamp";
  if (!keyFile.empty()) {
    builder.m_version = ApiVersion::v2;
    builder.m_accessKey = ReadKey(keyFile);
  }

  // Three steps: the items, the params around them, the request around those. Each takes over the tree of the
  // step before when it succeeds.
  JsonTree states = Owned(cJSON_CreateArray());
  Append(states, Owned(builder.CreateStatesItemJson("power", "on")));
  Append(states, Owned(builder.CreateStatesItemJson("mode", "automatic")));
  JsonTree params = Owned(builder.CreateStatesParamsObj(states.get()));
  HandedOver(states);
  SendLine(Wrapped(builder, params).get());
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  return demo::Run(argv[0], [&] { demo::Report(argc > 1 ? argv[1] : ""); });
}
