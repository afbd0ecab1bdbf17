// Handles and exceptions: which tree is whose after which exception, and what to do about each class of them.
// JsonTree.h holds the handles, Request.h the one case in which the library deletes what it was given.
//
//   g++ -std=c++17 raii_handles.cpp -o raii_handles $(pkg-config --cflags --libs pluginsdk)
//   ./raii_handles KEYFILE     prints reports; the remarks on standard error tell what was refused before
//
// The rule: an argument is the caller's until the function that attaches it has returned. A handle that is
// released on the line after the call follows it by itself, whichever line throws.
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <utility>

#include "JsonTree.h"
#include "LineProgram.h"
#include "ReadKey.h"
#include "Request.h"
#include "StatesPluginJson.h"

namespace demo {
namespace {

/// The text of an exception says what is wrong, its number what kind of answer there is.
enum ErrorNumber : int { kFormat = 1, kSize, kItemArgument, kDescription, kCommandParameter, kAccessKey };
static_assert(kSize == kSizeExceeded && kAccessKey == 6);

const char* Answer(int number) {
  switch (number) {
    case kSize:
      return "send less at once";
    case kAccessKey:
      return "get the key, then go on";
    case kFormat:
    case kItemArgument:
    case kDescription:
    case kCommandParameter:
      return "no run will mend it, a developer must";
    default:
      return "unknown to this program";
  }
}

void Tell(const CPluginException& error) {
  std::cerr << error.getErrorNumber() << " " << error.what() << " -> " << Answer(error.getErrorNumber())
            << std::endl;
}

/// A table that is refused is still ours, and unchanged: it is shortened and offered again. A state has one
/// value and cannot be told in parts, so the rows at the end are lost; how many is told.
JsonTree TableItem(CStatesPluginJson& builder, const char* name, JsonTree table) {
  const int all = cJSON_GetArraySize(table.get());
  for (int rows = all;; --rows) {
    try {
      JsonTree item = Owned(builder.CreateStatesItemJson(name, table.get()));
      HandedOver(table);
      if (rows < all) {
        std::cerr << name << ": the last " << all - rows << " of " << all << " rows are left out"
                  << std::endl;
      }
      return item;
    } catch (const CPluginException& error) {
      if (error.getErrorNumber() != kSize || rows == 0) {
        throw;  // the handle frees the table on the way out
      }
      if (rows == all) {
        Tell(error);
      }
      cJSON_DeleteItemFromArray(table.get(), rows - 1);
    }
  }
}

/// Without the key the request cannot be signed, but the params are still ours: they go out once it is there.
void SendWithKey(CStatesPluginJson& builder, JsonTree params, const std::string& keyFile) {
  try {
    SendLine(Wrapped(builder, params).get());
  } catch (const CPluginException& error) {
    if (error.getErrorNumber() != kAccessKey) {
      throw;
    }
    Tell(error);
    builder.m_accessKey = ReadKey(keyFile);
    SendLine(Wrapped(builder, params).get());
  }
}

JsonTree ParamsOf(CStatesPluginJson& builder, JsonTree states) {
  JsonTree params = Owned(builder.CreateStatesParamsObj(states.get()));
  HandedOver(states);
  return params;
}

using Values = std::map<std::string, std::string>;

/// A request that is too long takes its params with it. What is sent therefore stays in values of our own,
/// from which two shorter requests are built: no value is lost and none is told twice.
void SendInParts(CStatesPluginJson& builder, Values::const_iterator first, Values::const_iterator last) {
  JsonTree states = Owned(cJSON_CreateArray());
  for (auto value = first; value != last; ++value) {
    Append(states, Owned(builder.CreateStatesItemJson(value->first.c_str(), value->second.c_str())));
  }
  JsonTree params = ParamsOf(builder, std::move(states));
  try {
    SendLine(Wrapped(builder, params).get());
  } catch (const CPluginException& error) {
    const auto count = std::distance(first, last);
    if (error.getErrorNumber() != kSize || count < 2) {
      throw;
    }
    Tell(error);
    const auto middle = std::next(first, count / 2);
    SendInParts(builder, first, middle);
    SendInParts(builder, middle, last);
  }
}

void Show(const std::string& keyFile) {
  CStatesPluginJson builder;
  builder.m_appGUID = "9d3c1f52-0f6e-4d0b-8a55-3f1f6f7f2b10";
  builder.m_moduleName = "shelf";
  builder.m_version = ApiVersion::v2;

  JsonTree table = Owned(cJSON_CreateArray());
  Values values;
  for (int i = 0; i < 40; ++i) {
    JsonTree row = Owned(cJSON_CreateObject());
    AttachText(row, "name", "slot " + std::to_string(i) + " of 40");
    Append(table, std::move(row));
    values["slot" + std::to_string(i)] = std::string(50, 'x');
  }
  JsonTree states = Owned(cJSON_CreateArray());
  Append(states, TableItem(builder, "slots", std::move(table)));
  SendWithKey(builder, ParamsOf(builder, std::move(states)), keyFile);
  SendInParts(builder, values.begin(), values.end());
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
  return demo::Run(argv[0], [&] { demo::Show(argc > 1 ? argv[1] : ""); });
}
