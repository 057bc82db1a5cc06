// A program to build process trees from. Linked to under another name, it has that name.
//
//   process_probe ask NAME...                 prints 1 or 0 for each name
//   process_probe run PROGRAM ARGUMENT...     runs the program as its child, and waits

#include <cstdio>
#include <string_view>

#include <sys/wait.h>
#include <unistd.h>

#include "Sendoff/ProcessCheck.h"

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string_view command = argv[1];
  if (command == "ask") {
    for (int i = 2; i < argc; ++i) std::putchar(isProcessNameInHierarchy(argv[i]) ? '1' : '0');
    return 0;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    ::execv(argv[2], argv + 2);
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status == 0 ? 0 : 1;
}
