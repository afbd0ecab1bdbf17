#include "Members.h"

#include <strings.h>
#include <cstring>
#include <string>

namespace tool {

namespace {

struct TypeName {
  int types;
  const char* words;
};
constexpr std::array<TypeName, 6> kTypeNames = {{{cJSON_String, "a string"},
                                                 {cJSON_Number, "a number"},
                                                 {kBoolean, "true or false"},
                                                 {cJSON_Array, "an array"},
                                                 {cJSON_Object, "an object"},
                                                 {cJSON_NULL, "null"}}};

std::string Named(int types) {
  std::string words;
  for (const TypeName& name : kTypeNames) {
    if ((name.types & types) == 0) continue;
    if (!words.empty()) words += " or ";
    words += name.words;
  }
  return words;
}

}  // namespace

bool HasType(const cJSON* node, int types, Findings& findings) {
  if (node == nullptr || (node->type & types) != 0) return true;
  findings.Fault({node}, {"must be " + Named(types) + ", is " + Named(node->type)});
  return false;
}

void WarnUnlessUsual(const cJSON* node, int types, Findings& findings) {
  if (node == nullptr || (node->type & types) != 0) return;
  findings.Warn({node}, {"is " + Named(node->type) + ", which the library allows: usual is " + Named(types)});
}

Members::Members(const cJSON* object, const Shape& shape, Findings& findings)
    : m_shape(shape), m_object(object), m_isObject(HasType(object, cJSON_Object, findings)) {
  if (!m_isObject) return;
  for (const cJSON* member : pluginsdk::internal::Children(object)) Read(member, findings);
  for (std::size_t i = 0; i < m_shape.count; ++i) {
    const Field& field = m_shape.fields[i];
    if (m_slots[i].node != nullptr) continue;
    if (field.presence == kRequired) findings.Fault({object, field.key}, {"is missing"});
    if (field.presence == kExpected) {
      findings.Warn({object, field.key}, {"is missing, which the library allows"});
    }
  }
}

// Keys are found as the library finds them: without regard to letter case, and the first one wins.
void Members::Read(const cJSON* member, Findings& findings) {
  for (std::size_t i = 0; i < m_shape.count; ++i) {
    const Field& field = m_shape.fields[i];
    if (strcasecmp(member->string, field.key) != 0) continue;
    Slot& slot = m_slots[i];
    if (slot.node != nullptr) {
      findings.Warn({member}, {std::string("a second \"") + field.key + "\": the first one counts"});
      return;
    }
    slot = {member, !HasType(member, field.types, findings)};
    if (!slot.isWrong) WarnUnlessUsual(member, field.usual, findings);
    if (std::strcmp(member->string, field.key) == 0) return;
    findings.Warn({member}, {std::string("is read as \"") + field.key + "\", which differs in letter case"});
    return;
  }
  findings.Warn({member}, {"unknown member"});
}

const Members::Slot& Members::SlotOf(const char* key) const {
  static const Slot kAbsent;
  for (std::size_t i = 0; i < m_shape.count; ++i) {
    if (std::strcmp(m_shape.fields[i].key, key) == 0) return m_slots[i];
  }
  return kAbsent;  // objects of this shape have no such member
}

const cJSON* Members::Find(const char* key) const {
  const Slot& slot = SlotOf(key);
  return slot.isWrong ? nullptr : slot.node;
}

bool Members::CanJudge(const char* key) const {
  return m_isObject && !SlotOf(key).isWrong;
}

Place Members::At(const char* key) const {
  const cJSON* node = SlotOf(key).node;
  return node == nullptr ? Place{m_object, key} : Place{node};
}

}  // namespace tool
