/// @file
/// A plugin's description of any size, and its registration request made in two ways.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <list>

#include "PluginData.h"

namespace bench {

/// Modules of so many items each: a fifth of them properties, states, metrics and events, a tenth commands
/// and alarms with one parameter. Neither way changes it, but for the builder that the model keeps.
class Registration {
 public:
  Registration(std::size_t modules, std::size_t itemsPerModule);

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
