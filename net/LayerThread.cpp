// The layer's words of each thread.

#include "net/LayerThread.h"

SLayerThread& LayerThread() {
  static thread_local SLayerThread own;
  return own;
}
