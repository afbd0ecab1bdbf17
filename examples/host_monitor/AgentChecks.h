/// @file
/// How an agent judges what a plugin sends: is it signed by who knows the access key, and does it fit what
/// the plugin declared when it registered.
#pragma once

#include <cjson/cJSON.h>

#include <map>
#include <set>
#include <string>

#include "JsonTree.h"

namespace demo {

/// A received text. Nothing of it may be used unless `refusal` is empty.
struct Examined {
  JsonTree request;               ///< null when the text is not JSON
  std::string kind = "?";         ///< method without version and signature
  std::string refusal;            ///< why the text is not believed; empty when it is
  const cJSON* params = nullptr;  ///< part of `request`
};

/// Parses and verifies a text. It must be of exactly the version that was agreed on: otherwise whoever cannot
/// sign would just claim the version that is not signed.
/// @param accessKey looked at under "v2" only
Examined Examine(const std::string& text, const std::string& version, const std::string& accessKey);

/// What a plugin has declared. One thread at a time.
class Registration {
 public:
  /// Takes a notifyPluginUpdate over, replacing what was declared before. On success `*outcome` is
  /// "registered", "renewed" (nothing new but its time) or "changed"; else the fault, and nothing is
  /// replaced.
  bool Take(const cJSON* params, std::string* outcome);

  /// What is wrong with the params of any other message; "" when all its names are declared and its values
  /// are of the declared types.
  std::string Check(const std::string& kind, const cJSON* params) const;

  long Epoch() const { return m_epoch; }

 private:
  struct Module {
    /// By collection ("states", "metrics", ...) and name: the display type, "" where there is none.
    std::map<std::string, std::map<std::string, std::string>> items;
    std::map<std::string, std::set<std::string>> commandParams;  ///< by command
  };
  using Modules = std::map<std::string, Module>;
  static std::string ReadModule(const cJSON* description, Modules* modules);
  static std::string CheckReport(const std::string& kind, const cJSON* params, const Module& module);
  static std::string CheckLocalCommands(const cJSON* params, const Module& module);

  Modules m_modules;
  std::string m_appGUID;
  std::string m_description;  ///< the params as printed, without the time
  long m_epoch = 0;
};

/// The text of a string member, "" when it is absent or no string.
std::string TextOf(const cJSON* object, const char* key);

}  // namespace demo
