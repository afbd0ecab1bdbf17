/// @file
/// Frame of the small programs. Standard input and output stand for the channel to the agent, with one
/// message on each line; remarks go to standard error. A real channel also limits how long a message may be.
#pragma once

#include <cstdlib>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

#include "JsonTree.h"
#include "Utl_Log.h"

namespace demo {

/// Prints a request compactly: the printing that is signed by default, and one without line breaks.
inline void SendLine(const cJSON* request) {
  std::cout << Compact(request) << std::endl;
  if (!std::cout) {
    throw std::runtime_error("standard output cannot be written");  // a full disk, or nobody reads it
  }
}

/// Hands each line of standard input to `handle`. No line ends the program: what `handle` throws is told. An
/// output that takes no more ends it.
template <class Handle>
void ForEachLine(Handle handle) {
  for (std::string line; std::getline(std::cin, line);) {
    try {
      handle(line);
    } catch (const std::exception& error) {
      if (!std::cout) throw;
      std::cerr << "refused: " << error.what() << std::endl;
    }
  }
}

/// Sets up what every plugin sets up first, then runs `body`. Returns the exit status.
template <class Body>
int Run(const char* program, Body body) {
  UTL_LOGSetWriteToStdout(false);  // standard output is for messages
  UTL_LOGInit(program, nullptr);   // before anything logs; a directory instead of null gets log files
  try {
    std::srand(
        std::random_device{}());  // salts of signatures come from rand(), which the library never seeds
    body();
    return std::cout ? 0 : 1;
  } catch (const std::exception& error) {  // CPluginException among them
    std::cerr << program << ": " << error.what() << std::endl;
    return 1;
  }
}

}  // namespace demo
