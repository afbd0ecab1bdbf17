/// @file
/// Ownership for the trees that the library hands out and takes over.
///
/// Builders return raw cJSON pointers. Put each into a JsonTree on the line that receives it, and release it
/// on the line that hands it over: then no early return and no exception leaks it.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <new>
#include <string>

namespace demo {

struct JsonDeleter {
  void operator()(cJSON* tree) const noexcept { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;

/// Takes a new tree; cJSON answers null when memory runs out.
inline JsonTree Owned(cJSON* tree) {
  if (tree == nullptr) {
    throw std::bad_alloc();
  }
  return JsonTree(tree);
}

/// Gives `tree` up to a parent that has just attached it.
inline void HandedOver(JsonTree& tree) {
  static_cast<void>(tree.release());
}

inline void Append(const JsonTree& array, JsonTree item) {
  if (!cJSON_AddItemToArray(array.get(), item.get())) {
    throw std::bad_alloc();
  }
  HandedOver(item);
}

inline void Attach(const JsonTree& object, const char* key, JsonTree item) {
  if (!cJSON_AddItemToObject(object.get(), key, item.get())) {
    throw std::bad_alloc();
  }
  HandedOver(item);
}

inline void AttachText(const JsonTree& object, const char* key, const std::string& text) {
  Attach(object, key, Owned(cJSON_CreateString(text.c_str())));
}

/// The compact printing: the one that is sent, because it is the one that is signed by default.
inline std::string Compact(const cJSON* tree) {
  // What cJSON printed goes back through cJSON_free, which follows hooks that an application installed.
  const std::unique_ptr<char, void (*)(void*)> text(cJSON_PrintUnformatted(tree), cJSON_free);
  if (text == nullptr) {
    throw std::bad_alloc();
  }
  return text.get();
}

}  // namespace demo
