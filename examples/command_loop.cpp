// Obeys the agent: reads one message from each line of standard input, executes commands and prints the
// acknowledgements, one request on each line. Whatever comes in, the loop goes on.
//
//   g++ -std=c++17 command_loop.cpp -o command_loop $(pkg-config --cflags --libs pluginsdk)
//   ./command_loop KEYFILE < messages     the access key is what KEYFILE (chmod 600) holds
#include <algorithm>
#include <deque>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>

#include "CommandAcksPluginJson.h"
#include "JsonTree.h"
#include "LineProgram.h"
#include "Parameters.h"
#include "ReadKey.h"
#include "Request.h"

namespace demo {
namespace {

std::string Dim(const Parameters& parameters) {
  const auto percent = parameters.find("percent");
  const int level = NumberFrom(percent == parameters.end() ? "" : percent->second, 0, 100);
  return "dimmed to " + std::to_string(level);
}

std::string Blink(const Parameters&) {
  return "blinked";
}

/// The commands that the plugin declared when it registered. A function returns the result to acknowledge,
/// or throws std::invalid_argument with the reason why there is none.
constexpr struct Command {
  const char* name;
  std::string (*execute)(const Parameters& parameters);
} kCommands[] = {{"dim", Dim}, {"blink", Blink}};

const Command* Find(cJSON* command) {
  const std::string name = CPluginUtil::GetJSONStringFieldValue(command, "name");  // "" if it is no object
  const auto* found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command& row) { return name == row.name; });
  return found == std::end(kCommands) ? nullptr : found;
}

using AckParams = cJSON* (CCommandAcksPluginJson::*)(cJSON* results);
void Send(CCommandAcksPluginJson& acks, AckParams createParams, JsonTree results) {
  JsonTree params = Owned((acks.*createParams)(results.get()));
  if (cJSON_GetArraySize(results.get()) > 0) {
    HandedOver(results);  // an empty array is not attached and stays ours
  }
  SendLine(Wrapped(acks, params).get());
}

const char* Objection(const CCommandPluginJson& request) {
  if (request.m_moduleName != "lamp") return "no such module";
  // All or nothing: a request that holds one command that is not known is not begun.
  const auto& commands = request.m_commands;
  return std::all_of(commands.begin(), commands.end(), Find) ? nullptr : "unknown command";
}

/// What was executed and with which outcome, newest first.
using Ids = std::deque<std::pair<std::string, AckParams>>;

void Execute(CCommandPluginJson& request, Ids& done) {
  CCommandAcksPluginJson acks;
  acks.m_appGUID = "9d3c1f52-0f6e-4d0b-8a55-3f1f6f7f2b10";
  acks.m_version = ApiVersion::v2;
  acks.m_accessKey = request.m_accessKey;
  acks.m_commandPluginJson = &request;  // borrowed: id, source and module are echoed from it

  JsonTree results = Owned(cJSON_CreateArray());
  const auto add = [&results](const char* name, const std::string& result) {
    Append(results, Owned(CCommandAcksPluginJson::CreateCommandAcksItemJson(name, result.c_str())));
  };
  // A recorded command verifies again, so no id is executed twice. It is answered with its first outcome: an
  // agent that lost that answer asks again, and must not take what was done for rejected.
  const auto former = std::find_if(done.begin(), done.end(),
                                   [&](const auto& entry) { return entry.first == request.m_commandId; });
  if (former != done.end()) {
    add("request", "executed before");
    return Send(acks, former->second, std::move(results));
  }
  if (const char* objection = Objection(request)) {
    add("request", objection);
    return Send(acks, &CCommandAcksPluginJson::CreateCommandAcksRejectedParamsObj, std::move(results));
  }
  // Errored until the end is reached: an exception that is not expected leaves the commands half executed.
  done.push_front({request.m_commandId, &CCommandAcksPluginJson::CreateCommandAcksErroredParamsObj});
  done.resize(std::min<std::size_t>(done.size(), 1000));  // bounded; keep the channel private all the same
  Send(acks, &CCommandAcksPluginJson::CreateCommandAcksAcceptedParamsObj, nullptr);
  AckParams outcome = &CCommandAcksPluginJson::CreateCommandAcksAckedParamsObj;
  for (cJSON* command : request.m_commands) {  // the trees stay the request's
    const Command* row = Find(command);
    try {
      add(row->name, row->execute(ParametersOf(command)));
    } catch (const std::invalid_argument& error) {
      add(row->name, error.what());
      outcome = &CCommandAcksPluginJson::CreateCommandAcksErroredParamsObj;
      break;
    }
  }
  done.front().second = outcome;  // before it is told, which may fail
  Send(acks, outcome, std::move(results));
}

void Handle(const std::string& text, const std::string& accessKey, Ids& done) {
  std::string type;
  const std::unique_ptr<char, void (*)(void*)> extra(CPluginUtil::GetMessageType(text.c_str(), &type),
                                                     cJSON_free);
  if (type != MessageType::api_notifyPluginCommand) {
    // Errors and events of the agent are not signed: they are noted, and nothing is done that needs trust.
    std::cerr << type << ": " << (extra == nullptr ? "not for this program" : extra.get()) << std::endl;
    return;
  }
  // With limits, an unsigned text does not get around the signature, and none takes gigabytes to verify.
  // std::out_of_range leaves when the method of a signed text is escaped; like all else it ends this text
  // only.
  CCommandPluginJson request(text.c_str(), accessKey, VerificationLimits());
  if (!request.m_validSignature) {
    throw std::invalid_argument("not signed with our key");  // and not answered: nobody knows who sent it
  }
  Execute(request, done);
}

void Loop(const std::string& accessKey) {
  Ids done;
  ForEachLine([&](const std::string& line) { Handle(line, accessKey, done); });
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  return demo::Run(argv[0], [&] { demo::Loop(demo::ReadKey(argc > 1 ? argv[1] : "")); });
}
