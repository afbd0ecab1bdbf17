/// @file
/// The version, which follows semantic versioning: a plugin runs with every library of the same major version
/// that is not older than the headers it was compiled with.
#pragma once

#include "PluginSDK_export.h"

// The build reads the version out of the next three definitions.

/// Changes when something that plugins rely on is taken away or changed.
#define PLUGINSDK_VERSION_MAJOR 1
/// Grows with what is added.
#define PLUGINSDK_VERSION_MINOR 1
/// Grows with corrections.
#define PLUGINSDK_VERSION_PATCH 0

/// One number for `#if`: 1.2.3 is 10203.
#define PLUGINSDK_VERSION \
  (PLUGINSDK_VERSION_MAJOR * 10000 + PLUGINSDK_VERSION_MINOR * 100 + PLUGINSDK_VERSION_PATCH)

/// @cond INTERNAL
// Two steps, so that the names become their numbers before they become text.
#define PLUGINSDK_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
#define PLUGINSDK_VERSION_TEXT(major, minor, patch) PLUGINSDK_VERSION_TEXT_(major, minor, patch)
/// @endcond

/// The version of these headers, as in "1.2.3".
#define PLUGINSDK_VERSION_STRING \
  PLUGINSDK_VERSION_TEXT(PLUGINSDK_VERSION_MAJOR, PLUGINSDK_VERSION_MINOR, PLUGINSDK_VERSION_PATCH)

/// The version of the library that is in use, as in "1.2.3". It differs from PLUGINSDK_VERSION_STRING when a
/// plugin runs with another library than the one it was compiled against. The text lives as long as the
/// library. Safe for concurrent use.
PLUGINSDK_API const char* PluginSDK_Version();
