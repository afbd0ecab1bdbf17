/// @file
/// What a check finds in a JSON document: gathered by node, told in the document's order with pointer and
/// line.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BasePluginObject.h"
#include "Input.h"
#include "JsonHandle_internal.h"

namespace tool {

/// A broken rule in words. The number is the library's; 0 for the tool's own words.
struct Complaint {
  std::string text;
  int number = 0;
};

/// The value in question, or a member that `node`, an object, lacks.
struct Place {
  const cJSON* node = nullptr;
  const char* missing = nullptr;
};

struct Finding {
  bool isWarning = false;
  Complaint complaint;
  std::string pointer;  ///< RFC 6901; "" is the whole document
  Position position;    ///< of the value; of the object where a member is missing
};

/// One thread at a time. Refers to the nodes of the document, which must stay as they are.
class Findings {
 public:
  void Fault(const Place& place, Complaint complaint) { Add(place, std::move(complaint), false); }
  void Warn(const Place& place, Complaint complaint) { Add(place, std::move(complaint), true); }

  /// All of them in the order of `text`, of which `root` is the tree. Linear in the text.
  std::vector<Finding> InOrder(const cJSON* root, std::string_view text) &&;

 private:
  struct Entry {
    Place place;
    Finding finding;
  };
  friend class Locator;

  void Add(const Place& place, Complaint complaint, bool isWarning);

  std::vector<Entry> m_entries;
};

/// What the library says against `build()`, which returns a new tree or throws; nothing when it is built.
template <typename Build>
std::optional<Complaint> Refusal(Build build) {
  try {
    const pluginsdk::internal::JsonPtr built(build());
    return std::nullopt;
  } catch (const CPluginException& exception) {
    return Complaint{exception.what(), exception.getErrorNumber()};
  }
}

}  // namespace tool
