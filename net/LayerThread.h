#pragma once

#include <string_view>

class CLink;
class CLinkBinding;

/// What the network layer knows of a thread.
struct SLayerThread {
  bool m_bOfLayer = false;                   ///< a thread of some manager's layer
  CLink* m_pDelivers = nullptr;              ///< the link whose callbacks it runs; null: none
  const CLinkBinding* m_pBinding = nullptr;  ///< the innermost; null: none
  std::string_view m_strBehind;              ///< whole packets behind the one that is delivered
  bool m_bMoreToCome = false;                ///< a further packet has arrived whole behind this one
  std::string_view m_strArrived;             ///< all that has, where packets come one by one
};

/// The calling thread's own.
SLayerThread& LayerThread();
