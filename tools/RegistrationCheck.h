/// @file
/// The rules of a registration, each judged by the library's own builders.
#pragma once

#include "Findings.h"
#include "Members.h"

namespace tool {

/// Tells everything that is wrong with the params of a registration.
void CheckRegistration(const cJSON* params, Findings& findings);

/// Complaints about the members that several kinds of params share: "appGUID", "epoch", "moduleName".
void CheckStamp(const Members& params, Findings& findings);

/// Tells when the text `key` is there and no number of seconds.
void CheckSeconds(const Members& members, const char* key, Findings& findings);

/// What the library says against a name of an item, and of a module.
std::vector<Complaint> AgainstItemName(const char* name);
std::vector<Complaint> AgainstModuleName(const char* name);

/// Warns of every name that an object further up in the array has already.
void WarnOfRepeatedNames(const cJSON* array, const char* key, Findings& findings);

}  // namespace tool
