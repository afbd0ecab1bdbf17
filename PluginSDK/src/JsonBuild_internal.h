/// @file
/// Internal, not installed: building blocks of every message. Each step either completes or throws
/// std::bad_alloc, so that no builder can hand out a tree with a member missing for want of memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "JsonHandle_internal.h"

namespace pluginsdk::internal {

JsonPtr NewObject();
JsonPtr NewArray();

/// Adds a copy of `value` under `key`; a null text is absent and adds nothing.
void AddString(cJSON* object, const char* key, const char* value);
inline void AddString(cJSON* object, const char* key, const std::string& value) {
  AddString(object, key, value.c_str());
}
void AddNumber(cJSON* object, const char* key, double value);
void AddBool(cJSON* object, const char* key, bool value);

/// Attaches `item` under `key`; the object owns it on return. A null item adds nothing. When this
/// throws, nothing was attached: the raw form leaves `item` with the caller, the handle frees it.
void Attach(cJSON* object, const char* key, cJSON* item);
void Attach(cJSON* object, const char* key, JsonPtr item);
/// The same at the end of an array; a null item appends nothing.
void Append(cJSON* array, JsonPtr item);

/// The rule of every optional collection: attached when it is an object, or an array with at least one
/// element. Anything else (null included) leaves the key out and stays the caller's.
void AttachIfUsable(cJSON* object, const char* key, cJSON* collection);

/// Adds the current time, whole seconds since 1970 in decimal digits, as a string.
void AddEpoch(cJSON* object, const char* key = "epoch");

/// The tree of a received text; null for a null text and for one that is not JSON.
JsonPtr Parse(const char* text);

/// Printed text, indented or compact; null when there is no memory or the tree cannot be printed.
JsonText Print(const cJSON* tree, bool formatted);

/// Whether the indented printing of `tree` is longer than `limit` bytes. It is printed only when a bound on
/// its size does not decide already, and up to kLargestLimit bytes without an allocation. Throws
/// std::bad_alloc when there is no memory to print it.
constexpr std::size_t kLargestLimit = 2048;
bool PrintsLongerThan(const cJSON* tree, std::size_t limit);

/// The text of a string member, "" when the object is null, the member absent or of another type.
/// Keys compare without regard to letter case. The view is terminated, never null, and lives as long as
/// the tree is unchanged.
std::string_view StringMember(const cJSON* object, const char* key);

/// A copy of `text`. A null text leaves as the std::logic_error that plugins know from the standard
/// library, with the one wording "basic_string::_M_construct null not valid" on every compiler.
std::string RequireText(const char* text);

}  // namespace pluginsdk::internal
