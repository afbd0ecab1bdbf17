/// @file
/// Reads a JSON file that people write: every fault is told with its place in the file.
#pragma once

#include <cjson/cJSON.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "JsonTree.h"

namespace demo {

/// Unlike CPluginUtil::GetJsonFromFile, which ends the process when a file is empty or a directory.
/// @throws std::runtime_error, for what is not JSON with the line at which it stops to be
inline JsonTree ReadJson(const std::string& path) {
  const std::ifstream file(path);
  std::ostringstream content;
  if (!(content << file.rdbuf())) {
    throw std::runtime_error(path + ": cannot be read, or is empty");
  }
  const std::string text = content.str();
  const char* stop = nullptr;
  JsonTree tree(cJSON_ParseWithOpts(text.c_str(), &stop, true));  // true: nothing may follow
  if (tree == nullptr) {
    const auto line = std::count(text.c_str(), stop, '\n') + 1;
    throw std::runtime_error(path + ":" + std::to_string(line) + ": not JSON");
  }
  return tree;
}

/// A value of a tree, or the absence of one, and where it stands: "/modules/0/name". What is absent reads as
/// empty. Valid as long as the tree. All functions throw std::runtime_error with the place.
class JsonPlace {
 public:
  explicit JsonPlace(const cJSON* value, std::string path = "") : m_value(value), m_path(std::move(path)) {}

  [[noreturn]] void Refuse(const std::string& reason) const {
    throw std::runtime_error("at " + (m_path.empty() ? "/" : m_path) + ": " + reason);
  }
  JsonPlace At(const std::string& key) const {
    return JsonPlace(cJSON_GetObjectItemCaseSensitive(m_value, key.c_str()), m_path + "/" + key);
  }
  std::string Text(const std::string& key) const {
    const cJSON* text = At(key).Expect(cJSON_IsString, "a text");
    return text == nullptr ? "" : text->valuestring;
  }
  bool Flag(const std::string& key) const {
    return cJSON_IsTrue(At(key).Expect(cJSON_IsBool, "true or false"));
  }
  /// Calls visit(element) for each element of an array.
  template <class Visit>
  void Elements(Visit visit) const {
    const cJSON* array = Expect(cJSON_IsArray, "an array");
    int index = 0;
    for (const cJSON* child = array == nullptr ? nullptr : array->child; child; child = child->next) {
      visit(JsonPlace(child, m_path + "/" + std::to_string(index++)));
    }
  }
  /// Calls visit(key, member) for each member of an object.
  template <class Visit>
  void Members(Visit visit) const {
    const cJSON* object = Expect(cJSON_IsObject, "an object");
    for (const cJSON* child = object == nullptr ? nullptr : object->child; child; child = child->next) {
      visit(child->string, JsonPlace(child, m_path + "/" + child->string));
    }
  }
  std::list<std::string> Texts() const {
    std::list<std::string> texts;
    Elements([&](const JsonPlace& text) {
      texts.emplace_back(text.Expect(cJSON_IsString, "a text")->valuestring);
    });
    return texts;
  }

 private:
  const cJSON* Expect(cJSON_bool (*is)(const cJSON*), const char* kind) const {
    if (m_value != nullptr && !is(m_value)) Refuse(std::string(kind) + " is expected here");
    return m_value;
  }

  const cJSON* m_value;
  std::string m_path;
};

}  // namespace demo
