/// @file
/// From params to a request, with the one rule of ownership that differs from all others.
#pragma once

#include "BasePluginObject.h"
#include "JsonTree.h"

namespace demo {

constexpr int kSizeExceeded = 2;  // error number of CPluginException

/// Wraps `params` into the request of `builder`, signed if its version asks for it. `params` is empty then.
/// @throws CPluginException; `params` keeps its tree, except after kSizeExceeded, which deletes it
inline JsonTree Wrapped(CBasePluginObject& builder, JsonTree& params) {
  try {
    JsonTree request = Owned(builder.GetJsonrpcRequest(params.get()));
    HandedOver(params);
    return request;
  } catch (const CPluginException& error) {
    if (error.getErrorNumber() == kSizeExceeded) {
      HandedOver(params);  // a request that is too long has been deleted with all that is in it
    }
    throw;
  }
}

}  // namespace demo
