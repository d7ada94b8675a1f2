#pragma once

/// Runs a program's own main with its arguments in the bytes of the library's
/// paths, and its streams set for text in them.
///
/// @param body takes what main takes, returns what it returns
int StartProgram(int argc, char** argv, int (*body)(int argc, char** argv));

/// The same for a program that may be a service. On Windows the service manager
/// starts it with "--service" in front of its arguments, and a person makes
/// it a service with "--install" there, or takes it away with "--uninstall"; see
/// docs/windows.md. What it writes to the error stream as a service before it
/// fails goes to the system's event log.
int StartServiceProgram(int argc, char** argv, int (*body)(int argc, char** argv));

/// What --help says of that, "" where there is nothing of the kind.
const char* ServiceUsage();

/// To be called where a service ends without returning from its main.
void LeaveService();
