// Turns what a call throws into a text, so that rows of a table can name it.
#pragma once

#include <exception>
#include <string>

#include "BasePluginObject.h"

namespace message_test {

// "<number> <text>" of a CPluginException, "- <text>" of any other exception, "nothing" without one; then the
// tree that the call returns is freed.
template <typename Call>
std::string Thrown(Call call) {
  try {
    cJSON_Delete(call());
  } catch (const CPluginException& exception) {
    return std::to_string(exception.getErrorNumber()) + " " + exception.what();
  } catch (const std::exception& exception) {
    return std::string("- ") + exception.what();
  }
  return "nothing";
}

}  // namespace message_test
