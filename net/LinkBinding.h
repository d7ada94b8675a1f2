#pragma once

#include <memory>

#include "KQFileTransServiceExport.h"

class CLink;
class ILinkInfo;

/// Binds what one thread answers to one link: while it lives, what its thread
/// sends by CNetWorkManageEx::SendText to the link's address, whatever the
/// port, goes to that very link, or nowhere once it is gone. By address and
/// port alone an answer that comes late would reach a newer link of the same
/// client. The innermost binding of a thread counts.
///
/// Threads: an object stays on the thread that made it.
class KQFT_API CLinkBinding {
 public:
  /// To the link whose callback runs on this thread. Changes nothing on a
  /// thread that runs none.
  CLinkBinding();

  /// To `link`, from CNetWorkManageEx::GetLinkInfo or GetAllLinkInfo; null:
  /// nothing that the thread sends arrives anywhere. One that is not the
  /// layer's own changes nothing.
  explicit CLinkBinding(const ILinkInfo* link);
  CLinkBinding(const CLinkBinding&) = delete;
  CLinkBinding& operator=(const CLinkBinding&) = delete;
  ~CLinkBinding();

  /// For the layer: whether what this thread sends to the address is bound.
  /// @param link receives what to; null when that is gone
  static bool Find(unsigned int ip, std::shared_ptr<CLink>& link);

 private:
  void Enter();

  bool m_bBinds = false;
  bool m_bEverywhere = false;  // whatever the address
  unsigned int m_nIP = 0;
  std::shared_ptr<CLink> m_pLink;
  const CLinkBinding* m_pOuter = nullptr;
};
