#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "programs/kqft-server/AccessLog.h"
#include "programs/kqft-server/ServerOptions.h"
#include "programs/kqft-server/Traffic.h"
#include "server/KQFileTransServiceServer.h"

/// The library's server with what kqft-server adds: an access log, limits, and
/// what the service manager is told.
class CDataServer : public CKQFileTransServiceServer {
 public:
  /// @param access  null: no such log
  /// @param traffic what the links are doing, also when the server is gone
  CDataServer(const SServerOptions& options, std::shared_ptr<CAccessLog> access,
              std::shared_ptr<CTraffic> traffic);
  ~CDataServer() override;

  int ListenPort() const;

  /// A line for people: links, transfers, bytes a second since the last call,
  /// free space.
  /// Threads: one at a time.
  std::string Status();

  // Hooks.
  bool MayUpload(const STransferFacts& file) override;
  bool MayStore(const STransferFacts& file) override;
  bool MaySend(const STransferFacts& file) override;
  bool MayDelete(const STransferFacts& project) override;
  void OnUploaded(const STransferFacts& file) override;
  void OnDownloaded(const STransferFacts& file) override;
  void OnProjectsListed(const STransferFacts& link) override;
  void OnFilesListed(const STransferFacts& project) override;
  void OnDeleted(const STransferFacts& project) override;
  void OnRefused(const STransferFacts& what, ERefusal refusal) override;

 protected:
  void OnConnected(const STransferFacts& link) override;
  void OnDisconnected(const STransferFacts& link) override;

 private:
  void LogRefusal(const STransferFacts& what, ERefusal refusal);

  const std::string m_strDirectory;
  const std::int64_t m_llMinFree;
  const bool m_bDeletes;
  const std::shared_ptr<CAccessLog> m_pAccess;  // null: none
  const std::shared_ptr<CTraffic> m_pTraffic;
  std::int64_t m_llStatusTime = 0;   // used by Status
  std::int64_t m_llStatusBytes = 0;  // used by Status

  std::mutex m_refusalMutex;
  std::int64_t m_llRefusalTime = 0;     // guarded by m_refusalMutex; of the last entry
  std::int64_t m_llRefusalsUntold = 0;  // guarded by m_refusalMutex; since then
};
