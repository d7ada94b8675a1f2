#pragma once

#include <functional>
#include <memory>
#include <string>

#include "programs/kqft-server/ServerOptions.h"
#include "programs/kqft-server/Traffic.h"

/// Writes what a server is doing into status.json and kqft.prom every few
/// seconds, each replaced in one step, on a thread of its own, which may write
/// in their directory and nowhere else. What clients make the server do cannot
/// reach the files.
///
/// A directory that is full or gone is told once on the error stream, and tried
/// again.
class CStatusFiles {
 public:
  /// @param traffic what to tell of
  CStatusFiles(const SServerOptions& options, std::shared_ptr<const CTraffic> traffic);
  CStatusFiles(const CStatusFiles&) = delete;
  CStatusFiles& operator=(const CStatusFiles&) = delete;

  /// As Close, for a moment.
  ~CStatusFiles();

  /// Starts the thread, before the process confines itself.
  /// @param confined whether it is to confine itself
  /// @return "" or why there will be no files
  std::string Start(bool confined);

  /// The server accepts connections on this port: writes from now on.
  /// @param probe "" while the project directory can be used, else why not.
  ///              Called on the thread
  void Begin(int port, std::function<std::string()> probe);

  /// Tells that the server has ended.
  /// Blocks: until that is written, or for as long as it was told.
  void Close(int milliseconds);

 private:
  class CRates;
  struct SState;
  const std::shared_ptr<SState> m_pState;  // the thread's as well
};
