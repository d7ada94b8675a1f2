#pragma once

/// How the programs end.
constexpr int kExitDone = 0;            ///< all was done
constexpr int kExitFailed = 1;          ///< something failed; a message says what
constexpr int kExitUsage = 2;           ///< called in a way that makes no sense
constexpr int kExitNoConnection = 3;    ///< the server cannot be reached
constexpr int kExitLostDirectory = 75;  ///< a server cannot open its directory any more
constexpr int kExitHungUp = 129;        ///< the terminal is gone
constexpr int kExitInterrupted = 130;   ///< Ctrl-C
constexpr int kExitTerminated = 143;    ///< a polite request from outside
