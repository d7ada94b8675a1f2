// Held files: one receiver at a time.

#include "session/HeldFile.h"

#include "session/DurableUpload.h"

SHeldFile HoldFile(const std::string& path) {
  SHeldFile held;
  held.m_pFile = CFileHandle::Open(path, "r+bc", &held.m_eError);
  if (held.m_pFile == nullptr) return held;
  const ESystemError error = held.m_pFile->Lock();
  held.m_bLocked = error == ESystemError::kNone;
  if (held.m_bLocked || error == ESystemError::kUnsupported) return held;
  held.m_eError = error;
  if (error == ESystemError::kBusy) held.m_strHolder = CDurableUpload::WriterOf(*held.m_pFile);
  held.m_pFile = nullptr;
  return held;
}
