#pragma once

/// What the network layer knows of a thread.
struct SLayerThread {
  bool m_bOfLayer = false;  ///< a thread of some manager's layer
};

/// The calling thread's own.
SLayerThread& LayerThread();
