// POSIX systems start programs, and services, as they are.

#include "programs/ProgramStart.h"

int StartProgram(int argc, char** argv, int (*body)(int argc, char** argv)) {
  return body(argc, argv);
}

int StartServiceProgram(int argc, char** argv, int (*body)(int argc, char** argv)) {
  return body(argc, argv);
}

const char* ServiceUsage() {
  return "";
}

void LeaveService() {}
