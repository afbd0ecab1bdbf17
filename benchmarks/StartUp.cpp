/// @file
/// A whole process from start to end: one that makes and prints its first message against one that does
/// nothing but is linked with the libraries ours depends on.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Comparison.h"

namespace bench {

namespace {

Subject Process(const char* name, std::string path) {
  return {name, Repeat([path] {
            char* arguments[] = {const_cast<char*>(path.c_str()), nullptr};
            pid_t child = 0;
            int status = -1;
            if (posix_spawn(&child, path.c_str(), nullptr, nullptr, arguments, environ) != 0 ||
                waitpid(child, &status, 0) != child || status != 0) {
              std::fprintf(stderr, "%s cannot be run\n", path.c_str());
              std::exit(EXIT_FAILURE);
            }
          })};
}

}  // namespace

std::string Family() {
  return "start-up";
}

std::vector<Row> Rows() {
  return {{"start to first message",
           Process("first message", START_UP_MESSAGE),
           {{Process("empty program, same libraries", START_UP_EMPTY), Aim{1.0, 1.5e6}}}}};
}

}  // namespace bench
