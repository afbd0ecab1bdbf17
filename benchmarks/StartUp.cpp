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

/// `argument` may be null.
Subject Process(const char* name, std::string path, const char* argument = nullptr) {
  return {name, Repeat([path, argument] {
            char* arguments[] = {const_cast<char*>(path.c_str()), const_cast<char*>(argument), nullptr};
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
  const Opponent empty = {Process("empty program, same libraries", START_UP_EMPTY), Aim{1.0, 1.5e6}};
  return {{"start to first message", Process("first message", START_UP_MESSAGE), {empty}, 10},
          {"start to first signed message",
           Process("signed message", START_UP_MESSAGE, "access key"),
           {empty},
           10}};
}

}  // namespace bench
