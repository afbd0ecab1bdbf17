#include "ModelTree.h"

#include <strings.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "BasePluginObject.h"
#include "JsonBuild_internal.h"

namespace tool {

using namespace pluginsdk::internal;

namespace {

// In the order of the library's description classes.
constexpr std::array<const char*, 6> kGroups = {"properties", "states",   "metrics",
                                                "events",     "commands", "alarms"};
constexpr std::array<const char*, 7> kApplicationKeys = {"appName", "displayName",  "version",    "type",
                                                         "appGUID", "startCommand", "stopCommand"};
constexpr std::array<const char*, 3> kModuleKeys = {"moduleName", "displayName", "description"};
constexpr std::array<const char*, 14> kItemKeys = {
    "name",        "displayName",   "description",       "displayCategory",  "displayType",
    "displayUnit", "displayFormat", "displayValues",     "required",         "defaultValue",
    "type",        "value",         "valueFromProperty", "displayOnProperty"};

std::size_t CountOf(const cJSON* parent) {
  std::size_t count = 0;
  for ([[maybe_unused]] const cJSON* child : Children(parent)) ++count;
  return count;
}

// The elements of a group: nothing unless it is an array.
Children ElementsOf(const cJSON* owner, const char* key) {
  const cJSON* const group = cJSON_GetObjectItem(owner, key);
  return Children(cJSON_IsArray(group) ? group : nullptr);
}

std::string Counted(std::size_t count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

// ---- Words for readers

class Describer {
 public:
  explicit Describer(bool ascii) : m_ascii(ascii) {}

  TreeNode Application(const cJSON* params) const {
    TreeNode node = Named(params, "appName");
    AddText(node.line, params, "version", " ", Style::kNumber);
    AddText(node.line, params, "type", " ", Style::kWord);
    AddText(node.line, params, "displayName", " ", Style::kPlain, true);
    AddIdentity(node, params);
    AddCommands(node, params);
    std::size_t modules = 0;
    for (const cJSON* module : ElementsOf(params, "modules")) {
      node.children.push_back(Module(module));
      ++modules;
    }
    node.line.push_back({", " + Counted(modules, "module")});
    return node;
  }

 private:
  std::string Clean(std::string_view text) const { return Shown(text, m_ascii); }

  TreeNode Named(const cJSON* owner, const char* key) const {
    TreeNode node;
    if (!cJSON_IsObject(owner)) {
      node.line.push_back({"(no object) " + ValueOf(owner), Style::kBad});
      return node;
    }
    const char* const name = cJSON_GetStringValue(cJSON_GetObjectItem(owner, key));
    node.line.push_back(name == nullptr ? Piece{"(no name)", Style::kBad}
                                        : Piece{Clean(name), Style::kStrong});
    return node;
  }

  void AddText(Line& line, const cJSON* owner, const char* key, const char* before, Style style,
               bool quoted = false) const {
    AddMember(line, cJSON_GetObjectItem(owner, key), before, style, quoted);
  }

  // Only names and single words are not quoted: a line is worth little without them.
  void AddMember(Line& line, const cJSON* member, const char* before, Style style, bool quoted) const {
    if (member == nullptr) return;
    const bool isWord = cJSON_IsString(member) != 0 && !quoted;
    line.push_back({before});
    line.push_back({isWord ? Clean(member->valuestring) : ValueOf(member), style, !isWord});
  }

  void AddDescription(Line& line, const cJSON* owner) const {
    const std::size_t before = line.size();
    AddText(line, owner, "description", ": ", Style::kFaint);
    if (line.size() > before) line.back().mayShrink = true;
  }

  // Texts in quotes, lists of them with bars in between, everything else as JSON.
  std::string ValueOf(const cJSON* value) const {
    if (cJSON_IsString(value)) return "\"" + Clean(value->valuestring) + "\"";
    if (cJSON_IsArray(value)) return ListOf(value);
    const JsonText text = Print(value, false);
    return text == nullptr ? std::string() : Clean(text.get());
  }

  std::string ListOf(const cJSON* list) const {
    std::string text;
    for (const cJSON* element : Children(list)) {
      text += text.empty() ? "" : " | ";
      const JsonText printed = cJSON_IsString(element) ? nullptr : Print(element, false);
      text += cJSON_IsString(element) ? Clean(element->valuestring) : Clean(printed ? printed.get() : "");
    }
    return text;
  }

  void AddIdentity(TreeNode& node, const cJSON* params) const {
    Line line;
    AddText(line, params, "appGUID", "GUID ", Style::kPlain);
    const char* const epoch = cJSON_GetStringValue(cJSON_GetObjectItem(params, "epoch"));
    if (epoch != nullptr) line.push_back({(line.empty() ? "of " : ", of ") + Clean(TimeOf(epoch))});
    if (!line.empty()) node.children.push_back({std::move(line), {}});
  }

  void AddCommands(TreeNode& node, const cJSON* params) const {
    Line line;
    AddText(line, params, "startCommand", "start ", Style::kPlain, true);
    AddText(line, params, "stopCommand", line.empty() ? "stop " : ", stop ", Style::kPlain, true);
    if (!line.empty()) node.children.push_back({std::move(line), {}});
  }

  // Local time; the text itself when it is no time.
  static std::string TimeOf(const char* epoch) {
    char* end = nullptr;
    const std::time_t seconds = std::strtoll(epoch, &end, 10);
    std::tm time = {};
    char text[64];  // a year of any length fits
    const bool isTime = *epoch != '\0' && *end == '\0' && ::localtime_r(&seconds, &time) != nullptr;
    return isTime && std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &time) > 0 ? text : epoch;
  }

  TreeNode Module(const cJSON* module) const {
    TreeNode node = Named(module, "moduleName");
    AddText(node.line, module, "displayName", " ", Style::kPlain, true);
    AddDescription(node.line, module);
    for (const char* group : kGroups) AddGroup(node, module, group);
    return node;
  }

  void AddGroup(TreeNode& owner, const cJSON* module, const char* key) const {
    TreeNode group;
    for (const cJSON* item : ElementsOf(module, key)) group.children.push_back(Item(item));
    if (group.children.empty()) return;
    group.line = {{std::string(key) + " (" + std::to_string(group.children.size()) + ")"}};
    owner.children.push_back(std::move(group));
  }

  TreeNode Item(const cJSON* item) const {
    TreeNode node = Named(item, "name");
    Line& line = node.line;
    AddText(line, item, "displayName", " ", Style::kPlain, true);
    AddText(line, item, "displayType", " ", Style::kWord);
    AddText(line, item, "displayUnit", " in ", Style::kNumber);
    if (cJSON_IsTrue(cJSON_GetObjectItem(item, "required"))) line.push_back({", required", Style::kDoubtful});
    AddText(line, item, "displayFormat", ", as ", Style::kPlain, true);
    AddValue(line, item);
    AddText(line, item, "valueFromProperty", ", from property ", Style::kPlain);
    AddText(line, item, "displayOnProperty", ", shown on ", Style::kPlain, true);
    AddText(line, item, "displayCategory", ", category ", Style::kFaint);
    AddDescription(line, item);
    for (const cJSON* param : ElementsOf(item, "params")) node.children.push_back(Item(param));
    return node;
  }

  void AddValue(Line& line, const cJSON* item) const {
    const cJSON* const value = cJSON_GetObjectItem(item, "value");
    if (cJSON_IsArray(value)) {
      line.push_back({", " + Counted(CountOf(value), "row")});
    } else if (cJSON_HasObjectItem(value, "url") != 0) {
      AddLinks(line, value);
    } else if (cJSON_IsObject(value)) {
      AddChoice(line, value);
    } else {
      AddText(line, item, "value", " = ", Style::kPlain, true);
    }
    AddChoice(line, item);
  }

  // The library builds a link of two entries as one object with two of each member.
  void AddLinks(Line& line, const cJSON* links) const {
    const char* before = " to ";
    for (const cJSON* member : Children(links)) {
      const char* const key = member->string;
      if (::strcasecmp(key, "url") == 0)
        AddMember(line, member, std::exchange(before, ", "), Style::kPlain, true);
      if (::strcasecmp(key, "alias") == 0) AddMember(line, member, " ", Style::kPlain, true);
    }
  }

  void AddChoice(Line& line, const cJSON* owner) const {
    AddText(line, owner, "displayValues", ", one of ", Style::kPlain, true);
    AddText(line, owner, "defaultValue", ", default ", Style::kPlain, true);
  }

  bool m_ascii;
};

// ---- The same for programs

template <std::size_t N>
void Copy(cJSON* to, const cJSON* from, const std::array<const char*, N>& keys) {
  for (const char* key : keys) {
    const cJSON* const member = cJSON_GetObjectItem(from, key);
    if (member != nullptr) Attach(to, key, JsonPtr(cJSON_Duplicate(member, 1)));
  }
}

JsonPtr SummarizeItems(const cJSON* owner, const char* key) {
  JsonPtr items = NewArray();
  for (const cJSON* element : ElementsOf(owner, key)) {
    JsonPtr item = NewObject();
    Copy(item.get(), element, kItemKeys);
    if (cJSON_IsArray(cJSON_GetObjectItem(element, "params"))) {
      Attach(item.get(), "params", SummarizeItems(element, "params"));
    }
    Append(items.get(), std::move(item));
  }
  return items;
}

JsonPtr SummarizeModule(const cJSON* module) {
  JsonPtr summary = NewObject();
  Copy(summary.get(), module, kModuleKeys);
  cJSON* const counts = cJSON_AddObjectToObject(summary.get(), "counts");
  for (const char* group : kGroups) {
    JsonPtr items = SummarizeItems(module, group);
    AddNumber(counts, group, static_cast<double>(CountOf(items.get())));
    Attach(summary.get(), group, std::move(items));
  }
  return summary;
}

// ---- Branches

struct Branches {
  const char* middle;
  const char* last;
  const char* through;
  const char* past;
};
constexpr Branches kLines = {"├─ ", "└─ ", "│  ", "   "};
constexpr Branches kAscii = {"|-- ", "`-- ", "|   ", "    "};

void RenderChildren(const TreeNode& node, const std::string& indent, const Page& page, std::string& out) {
  const Branches& branches = page.ascii ? kAscii : kLines;
  for (const TreeNode& child : node.children) {
    const bool isLast = &child == &node.children.back();
    Line line = {{indent + (isLast ? branches.last : branches.middle), Style::kFaint}};
    line.insert(line.end(), child.line.begin(), child.line.end());
    out.append(Rendered(std::move(line), page)).append("\n");
    RenderChildren(child, indent + (isLast ? branches.past : branches.through), page, out);
  }
}

}  // namespace

const cJSON* FindRegistration(const cJSON* document, std::string& why) {
  const std::string_view method = StringMember(document, "method");
  if (!method.empty() && method.find(AgentPluginApi::notifyPluginUpdate) == std::string_view::npos) {
    why = "a request of another kind: \"" + std::string(method) + "\"";
    return nullptr;
  }
  const cJSON* const wrapped = cJSON_GetObjectItem(document, "params");
  const cJSON* const params = wrapped == nullptr ? document : wrapped;
  if (cJSON_HasObjectItem(params, "appName") != 0 || cJSON_HasObjectItem(params, "modules") != 0)
    return params;
  why = R"(has neither "appName" nor "modules")";
  return nullptr;
}

TreeNode DescribeModel(const cJSON* params, bool ascii) {
  return Describer(ascii).Application(params);
}

JsonPtr SummarizeModel(const cJSON* params) {
  JsonPtr summary = NewObject();
  AddBool(summary.get(), "registration", true);
  JsonPtr application = NewObject();
  Copy(application.get(), params, kApplicationKeys);
  AddString(application.get(), "epoch", cJSON_GetStringValue(cJSON_GetObjectItem(params, "epoch")));
  Attach(summary.get(), "application", std::move(application));
  JsonPtr modules = NewArray();
  for (const cJSON* module : ElementsOf(params, "modules")) Append(modules.get(), SummarizeModule(module));
  Attach(summary.get(), "modules", std::move(modules));
  return summary;
}

JsonPtr SummarizeAbsence(const std::string& why) {
  JsonPtr summary = NewObject();
  AddBool(summary.get(), "registration", false);
  AddString(summary.get(), "reason", why);
  return summary;
}

std::string RenderedTree(const TreeNode& root, const Page& page) {
  std::string out = Rendered(root.line, page) + "\n";
  RenderChildren(root, "", page, out);
  return out;
}

}  // namespace tool
