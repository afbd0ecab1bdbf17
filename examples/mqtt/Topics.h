/// @file
/// The topics of a plugin: one for what it sends, one for what is sent to it. A broker can be told who may
/// use which, because each holds the GUID.
#pragma once

#include <string>

namespace demo::mqtt {

inline std::string TopicUp(const std::string& appGUID) {
  return "plugins/" + appGUID + "/up";
}

inline std::string TopicDown(const std::string& appGUID) {
  return "plugins/" + appGUID + "/down";
}

/// The GUID in a topic of either kind; "" for any other topic.
inline std::string GuidOf(const std::string& topic) {
  const std::size_t begin = topic.find('/') + 1;
  const std::size_t end = topic.rfind('/');
  return begin == 0 || end < begin ? "" : topic.substr(begin, end - begin);
}

}  // namespace demo::mqtt
