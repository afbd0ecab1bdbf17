/// @file
/// The model that a registration declares, for readers and for programs.
#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <vector>

#include "JsonHandle_internal.h"
#include "Terminal.h"

namespace tool {

struct TreeNode {
  Line line;
  std::vector<TreeNode> children;
};

/// The params of the registration that `document` is or holds; null, with `why` told, when it is none.
const cJSON* FindRegistration(const cJSON* document, std::string& why);

/// One line for the application, and below it for each module, group, item and parameter. What is missing or
/// of a wrong type is left out or shown as it stands: no registration is too broken to be described.
/// @param ascii see Shown
TreeNode DescribeModel(const cJSON* params, bool ascii);

/// The same as a document: only known members, spelled right and in one order, every group present.
pluginsdk::internal::JsonPtr SummarizeModel(const cJSON* params);

/// The document in its place when there is no registration.
pluginsdk::internal::JsonPtr SummarizeAbsence(const std::string& why);

/// The tree with its branches, every line rendered for `page`.
std::string RenderedTree(const TreeNode& root, const Page& page);

}  // namespace tool
