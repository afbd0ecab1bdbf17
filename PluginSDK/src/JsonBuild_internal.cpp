#include "JsonBuild_internal.h"

#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>

#include "BasePluginObject.h"

namespace pluginsdk::internal {

namespace {

// Space for any decimal long, its sign and the terminator.
constexpr std::size_t kLongText = 21;

JsonPtr Checked(cJSON* tree) {
  if (tree == nullptr) throw std::bad_alloc();
  return JsonPtr(tree);
}

// cJSON answers null or false where it found no memory; its other reasons are excluded by the callers.
template <typename Result>
void RequireDone(Result result) {
  if (!result) throw std::bad_alloc();
}

// Bytes that cJSON writes for a text at most: quotes, and escapes of one or five bytes more.
std::size_t PrintedText(const char* text) {
  if (text == nullptr) return 2;
  std::size_t size = 2;
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    size += byte < 0x20U ? 6 : 1;
    size += byte == '"' || byte == '\\' ? 1 : 0;
  }
  return size;
}

// Whether the indented printing of `item` certainly takes no more than `left` bytes, which are used up by
// it. Printing a message that is far from its limit only to measure it would cost half as much as building
// it.
bool CertainlyFits(const cJSON* item, std::size_t depth, std::size_t& left) {
  constexpr std::size_t kLongestNumber = 25;  // longer than any literal
  constexpr std::size_t kPunctuation = sizeof ":\t{\n},\n";
  std::size_t size = kPunctuation + 2 * depth;  // tabs before the key and before the closing brace
  if (item->string != nullptr) size += PrintedText(item->string);
  if (cJSON_IsRaw(item)) return false;
  size += cJSON_IsString(item) ? PrintedText(item->valuestring) : kLongestNumber;
  if (size > left) return false;
  left -= size;
  for (const cJSON* child : Children(item)) {
    if (!CertainlyFits(child, depth + 1, left)) return false;
  }
  return true;
}

}  // namespace

JsonPtr NewObject() {
  return Checked(cJSON_CreateObject());
}

JsonPtr NewArray() {
  return Checked(cJSON_CreateArray());
}

void AddString(cJSON* object, const char* key, const char* value) {
  if (value != nullptr) RequireDone(cJSON_AddStringToObject(object, key, value));
}

void AddNumber(cJSON* object, const char* key, double value) {
  RequireDone(cJSON_AddNumberToObject(object, key, value));
}

void AddBool(cJSON* object, const char* key, bool value) {
  RequireDone(cJSON_AddBoolToObject(object, key, value));
}

void Attach(cJSON* object, const char* key, cJSON* item) {
  if (item != nullptr) RequireDone(cJSON_AddItemToObject(object, key, item));
}

void Attach(cJSON* object, const char* key, JsonPtr item) {
  Attach(object, key, item.get());
  item.release();
}

void Append(cJSON* array, JsonPtr item) {
  if (!item) return;
  RequireDone(cJSON_AddItemToArray(array, item.get()));
  item.release();
}

void AttachIfUsable(cJSON* object, const char* key, cJSON* collection) {
  const bool filledArray = cJSON_IsArray(collection) && collection->child != nullptr;
  if (filledArray || cJSON_IsObject(collection)) Attach(object, key, collection);
}

void AddEpoch(cJSON* object, const char* key) {
  char seconds[kLongText];
  AddString(object, key, CPluginUtil::Utilityltoa(static_cast<long>(std::time(nullptr)), seconds));
}

JsonPtr Parse(const char* text) {
  JsonPtr tree(cJSON_Parse(text));
  // After a failure cJSON goes on pointing into the text, which is freed one day. Parsing nothing makes
  // it forget, so that a later reader of its error position meets no dangling pointer.
  if (!tree) cJSON_ParseWithLength(nullptr, 0);
  return tree;
}

JsonText Print(const cJSON* tree, bool formatted) {
  return JsonText(formatted ? cJSON_Print(tree) : cJSON_PrintUnformatted(tree));
}

bool PrintsLongerThan(const cJSON* tree, std::size_t limit) {
  std::size_t left = limit;
  if (tree != nullptr && CertainlyFits(tree, 0, left)) return false;
  // The terminator, and the one byte by which cJSON overestimates what its last step needs.
  constexpr std::size_t kSlack = 2;
  char buffer[kLargestLimit + kSlack];
  // Printing changes nothing of the tree; the parameter merely lacks its const.
  if (cJSON_PrintPreallocated(const_cast<cJSON*>(tree), buffer, sizeof buffer, 1) != 0) {
    return std::strlen(buffer) > limit;
  }
  const JsonText text = Print(tree, true);
  RequireDone(text.get());
  return std::strlen(text.get()) > limit;
}

std::string_view StringMember(const cJSON* object, const char* key) {
  const char* text = cJSON_GetStringValue(cJSON_GetObjectItem(object, key));
  return text == nullptr ? std::string_view("") : std::string_view(text);
}

std::string RequireText(const char* text) {
  if (text == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
  return text;
}

}  // namespace pluginsdk::internal
