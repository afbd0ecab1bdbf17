/// @file
/// The one macro that marks what the shared library exports. Everything without it stays hidden.
#pragma once

#define PLUGINSDK_API __attribute__((visibility("default")))
