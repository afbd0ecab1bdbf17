/// @file
/// The members of a JSON object against the ones it may have.
#pragma once

#include <cjson/cJSON.h>

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "Findings.h"

namespace tool {

/// Types are sums of cJSON's own bits.
constexpr int kText = cJSON_String;
constexpr int kBoolean = cJSON_False | cJSON_True;
constexpr int kAnything = 0xFF;

/// Of a member that no rule of the library asks for. Without one that is expected a request can still be
/// built.
enum Presence { kOptional, kExpected, kRequired };

struct Field {
  const char* key;
  int types;                      ///< of all that can be built; another one is a fault
  Presence presence = kOptional;  ///< it is a warning when an expected one is missing, a fault when required
  int usual = kAnything;          ///< another one is a warning
};

constexpr std::size_t kMostFields = 10;

/// The fields of one kind of object; refers to a table, which must live longer.
struct Shape {
  const Field* fields;
  std::size_t count;
  template <std::size_t N>
  // NOLINTNEXTLINE(google-explicit-constructor): a table is all that a shape is
  constexpr Shape(const Field (&table)[N]) : fields(table), count(N) {
    static_assert(N <= kMostFields);
  }
};

/// Members of one object. Whatever is wrong with their number, spelling and types is told at construction.
class Members {
 public:
  /// Tells, when `object` is none, that it must be one; it has no members then.
  Members(const cJSON* object, const Shape& shape, Findings& findings);

  explicit operator bool() const { return m_isObject; }
  /// Null when it is absent or of a wrong type.
  const cJSON* Find(const char* key) const;
  /// Null when it is absent or no text.
  const char* Text(const char* key) const { return cJSON_GetStringValue(Find(key)); }
  /// Whether a rule can judge the member: false for an object's member of a wrong type, which was told.
  bool CanJudge(const char* key) const;
  Place At(const char* key) const;

 private:
  struct Slot {
    const cJSON* node = nullptr;
    bool isWrong = false;
  };

  void Read(const cJSON* member, Findings& findings);
  const Slot& SlotOf(const char* key) const;

  Shape m_shape;
  const cJSON* m_object;
  bool m_isObject;
  std::array<Slot, kMostFields> m_slots{};
};

/// Tells when `node` is of none of the types. `node` may be null.
bool HasType(const cJSON* node, int types, Findings& findings);

/// Warns when `node` is of none of the types, though the library sends it. `node` may be null.
void WarnUnlessUsual(const cJSON* node, int types, Findings& findings);

/// What an array holds; nothing where anything else, null included, stands in its place.
inline pluginsdk::internal::Children Elements(const cJSON* node) {
  return pluginsdk::internal::Children(cJSON_IsArray(node) ? node : nullptr);
}

/// Judges one member by a builder of the library that is given this text (null when absent), all else right.
template <typename Build>
void Judge(const Members& members, const char* key, Findings& findings, Build build) {
  if (!members.CanJudge(key)) return;
  auto refusal = Refusal([&] { return build(members.Text(key)); });
  if (refusal) findings.Fault(members.At(key), std::move(*refusal));
}

/// Every complaint of a builder about a name, where the builder itself stops at the first.
template <typename Build>
std::vector<Complaint> AgainstName(const char* name, Build build) {
  constexpr int kSizeError = 2;
  std::vector<Complaint> complaints;
  const auto refusal = Refusal([&] { return build(name); });
  if (!refusal) return complaints;
  complaints.push_back(*refusal);
  if (refusal->number != kSizeError || CPluginUtil::RegExMatch(name, StringFormatter::nameFormat, false)) {
    return complaints;
  }
  // Only of a shorter one does the builder say what is wrong with its form.
  if (auto form = Refusal([&] { return build("?"); })) {
    form->text.replace(form->text.find("\"?\"") + 1, 1, name);
    complaints.push_back(std::move(*form));
  }
  return complaints;
}

/// Judges a name by AgainstItemName, say.
template <typename Against>
void JudgeName(const Members& members, const char* key, Findings& findings, Against against) {
  if (!members.CanJudge(key)) return;
  for (Complaint& complaint : against(members.Text(key)))
    findings.Fault(members.At(key), std::move(complaint));
}

}  // namespace tool
