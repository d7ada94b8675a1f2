#pragma once

#include <cstdint>
#include <string>

#include "client/KQFileTransServiceClient.h"

/// The client with the manners of a good guest: it waits until the server has
/// time for it, tells whether files have arrived whole, and leaves such that
/// the server is free for the next.
///
///     CKQFileTransServiceVisitor client;
///     client.Init("logs/");
///     if (client.ConnectAndWait("10.0.0.5", 9999) != RESULT_OK) ...
///     if (client.UpdateFileToDataService(requestXml) != RESULT_OK) ...
///     if (client.WaitForEnd() != RESULT_OK) ...
///     client.AskSize(serverName, size);  // whole when it is the local size
///     client.Leave(serverName);
///
/// Threads: as the base class.
class KQFT_API CKQFileTransServiceVisitor : public CKQFileTransServiceClient {
 public:
  CKQFileTransServiceVisitor() = default;
  ~CKQFileTransServiceVisitor() override;

  /// Connect, then WaitUntilServed. Init comes before.
  /// @return also -14 no connection
  /// Blocks: up to 10 s more than that does.
  int ConnectAndWait(const std::string& ip, int port);

  /// Waits until the server answers on the link that stands. For about 10 s
  /// after a link over which data was stored, it does not.
  /// @param patienceMs how long to wait, in milliseconds
  /// @return 1; -14 the link is gone; -2 it answered nothing all that time.
  /// Blocks: usually not, else as long as that.
  int WaitUntilServed(int patienceMs = 120000);

  /// Waits for the end of a transfer whose start returned 1 (else for ever).
  /// @return 1 when no file of it failed and the link still stands; else the
  ///         first failure, or -14.
  int WaitForEnd();

  /// Asks how many bytes the server holds of a file; 0 also when there is no
  /// such file. Call while no transfer runs: GetTrans divides by the answer.
  /// @param name as in m_strName; one with "|" cannot be asked for
  /// @return 1; -4 not sent; -2 no answer in time; -22 an impossible one
  /// Blocks: up to 30 s.
  int AskSize(const std::string& name, std::int64_t& size);

  /// Ends the link, after an upload such that the server is free at once: a
  /// session that has stored data otherwise holds up the end of its link and
  /// the next one of this address for 5 s each. When the last question or the
  /// last file's end went unanswered the link is just ended.
  /// @param name of a file that the server holds, as in m_strName
  /// Blocks: not noticeably; up to 15 s when the server falls silent just now.
  void Leave(const std::string& name);

 protected:
  /// WaitUntilServed by a question of the caller's, which sets m_evReply.
  int WaitUntilAnswered(int code, const std::string& body, int patienceMs);
};
