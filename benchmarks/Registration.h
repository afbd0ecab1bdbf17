/// @file
/// A plugin's description of any size, and its registration request made in two ways.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <list>

#include "PluginData.h"

namespace bench {

/// Modules of 50 items each: 10 properties, states, metrics and events, 5 commands and alarms with one
/// parameter. Neither way changes it, but for the builder that the model keeps.
class Registration {
 public:
  explicit Registration(std::size_t modules);

  /// The request; the caller deletes it.
  cJSON* BuildByLibrary() const;
  /// The same tree with calls of cJSON alone, nothing checked.
  cJSON* BuildByHand() const;

 private:
  struct Items;
  Items* m_items;  // never deleted: benchmarks use it until the process ends
  CUpdateParams* m_params;
};

}  // namespace bench
