/// @file
/// The one macro that marks what the shared library exports. Everything without it stays hidden.
#pragma once

/// On a class, a function or a variable: part of the interface of the shared library.
#define PLUGINSDK_API __attribute__((visibility("default")))
