#pragma once

/// The standard streams as a person meets them.

enum class EStream { kInput, kOutput, kError };

/// True when the stream is a terminal, not a file or a pipe.
bool IsTerminal(EStream stream);

/// Columns of the terminal behind the output stream; 80 when it tells none.
int TerminalWidth();

/// Sends the error stream to nowhere for a scope. The library lists the files
/// of each request there, which is of no use to a person who watches.
///
/// Threads: one object at a time; what other threads report in the scope is
/// lost.
class CErrorStreamMute {
 public:
  CErrorStreamMute();
  CErrorStreamMute(const CErrorStreamMute&) = delete;
  CErrorStreamMute& operator=(const CErrorStreamMute&) = delete;
  ~CErrorStreamMute();

 private:
  int m_nSaved;  // used by one thread; the stream as it was, -1 when not muted
};
