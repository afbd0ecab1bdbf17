/// @file
/// Internal, not installed: owning handles for trees and texts of cJSON, and a range over children.
#pragma once

#include <cjson/cJSON.h>

#include <memory>

namespace pluginsdk::internal {

struct JsonDeleter {
  void operator()(cJSON* tree) const noexcept { cJSON_Delete(tree); }
};
/// Owns a tree from the line that makes it to the line that hands it over.
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

struct JsonTextDeleter {
  // cJSON_free, not free: the host may have installed allocation hooks of its own.
  void operator()(char* text) const noexcept { cJSON_free(text); }
};
/// Owns a text that cJSON printed.
using JsonText = std::unique_ptr<char, JsonTextDeleter>;

/// The children of an array or object, walked by their links: `for (cJSON* child : Children(array))`.
/// Fetching them by index instead would make every walk quadratic. A null parent has no children.
class Children {
 public:
  class Iterator {
   public:
    explicit Iterator(cJSON* item) : m_item(item) {}
    cJSON* operator*() const { return m_item; }
    Iterator& operator++() {
      m_item = m_item->next;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return m_item != other.m_item; }

   private:
    cJSON* m_item;
  };

  explicit Children(const cJSON* parent) : m_first(parent == nullptr ? nullptr : parent->child) {}
  Iterator begin() const { return Iterator(m_first); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  cJSON* m_first;
};

}  // namespace pluginsdk::internal
