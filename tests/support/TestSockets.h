#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "net/Sockets.h"

/// Which way bytes go, seen from the client.
enum class EDirection { kSent, kReceived };

/// What becomes of the connections that clients make.
struct SLinkPlan {
  /// The first connection made under the plan ends once it has carried so many
  /// bytes one way, or its other side falls silent. Negative: never.
  std::int64_t m_llEndAt = -1;
  EDirection m_direction = EDirection::kSent;
  bool m_bSilent = false;

  /// A call moves at most so many bytes.
  std::size_t m_nPiece = SIZE_MAX;

  /// Looks for what has arrived so much later that it comes in clumps.
  int m_nLingerMs = 0;
};

/// Puts planned sockets in the place of the real ones for a scope.
class CScopedSockets {
 public:
  CScopedSockets();
  ~CScopedSockets() { ReplaceSockets(m_pBefore); }

  void Follow(const SLinkPlan& plan);

  /// What the first connection under the plan has carried.
  std::string Carried(EDirection direction) const;

  /// True once the plan has ended or silenced it.
  bool HasEnded() const;

 private:
  class CPlanned;
  class CPlannedSocket;
  struct SState;
  const std::shared_ptr<SState> m_pState;
  const std::unique_ptr<ISocketSystem> m_pSockets;
  ISocketSystem* const m_pBefore;
};
