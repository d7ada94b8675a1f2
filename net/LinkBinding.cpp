// Which link a thread's answers are bound to.

#include "net/LinkBinding.h"

#include "net/LayerThread.h"
#include "net/Link.h"

CLinkBinding::CLinkBinding() {
  CLink* const link = LayerThread().m_pDelivers;
  if (link == nullptr) return;
  m_pLink = link->shared_from_this();
  m_nIP = link->IP();
  Enter();
}

CLinkBinding::CLinkBinding(const ILinkInfo* link) {
  const auto* const shell = dynamic_cast<const CLinkShell*>(link);
  if (link != nullptr && shell == nullptr) return;
  if (shell != nullptr) {
    m_pLink = shell->Link();
    m_nIP = shell->GetIP();
  }
  m_bEverywhere = link == nullptr;
  Enter();
}

void CLinkBinding::Enter() {
  m_bBinds = true;
  m_pOuter = LayerThread().m_pBinding;
  LayerThread().m_pBinding = this;
}

CLinkBinding::~CLinkBinding() {
  if (m_bBinds) LayerThread().m_pBinding = m_pOuter;
}

bool CLinkBinding::Find(unsigned int ip, std::shared_ptr<CLink>& link) {
  const CLinkBinding* const binding = LayerThread().m_pBinding;
  if (binding == nullptr || (binding->m_nIP != ip && !binding->m_bEverywhere)) return false;
  link = binding->m_pLink;
  return true;
}
