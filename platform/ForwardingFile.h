#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "platform/FileLook.h"
#include "platform/System.h"

/// Hands every call on to the file of another system. Must not outlive the
/// system that opened it.
class CForwardingFile : public ISystemFile {
  using enum EOperation;

 public:
  CForwardingFile(CForwardingSystem& system, std::string path, std::unique_ptr<ISystemFile> target)
      : m_system(system), m_strPath(std::move(path)), m_pTarget(std::move(target)) {}

  ESystemError ReadAt(const SReadPart* parts, int count, std::int64_t position,
                      std::int64_t& bytes) override {
    bytes = 0;
    return Call(kRead, [&] { return m_pTarget->ReadAt(parts, count, position, bytes); });
  }
  ESystemError WriteAt(const char* data, std::size_t size, std::int64_t position,
                       std::int64_t& bytes) override {
    bytes = 0;
    return Call(kWrite, [&] { return m_pTarget->WriteAt(data, size, position, bytes); });
  }
  ESystemError WriteParts(const SWritePart* parts, int count, std::int64_t position,
                          std::int64_t& bytes) override {
    bytes = 0;
    return Call(kWrite, [&] { return m_pTarget->WriteParts(parts, count, position, bytes); });
  }
  ESystemError Flush() override {
    return Call(kFlush, [&] { return m_pTarget->Flush(); });
  }
  ESystemError StartFlush() override {
    return Call(kStartFlush, [&] { return m_pTarget->StartFlush(); });
  }
  void ReadAhead(std::int64_t bytes) override { m_pTarget->ReadAhead(bytes); }
  ESystemError Resize(std::int64_t bytes) override {
    return Call(kResize, [&] { return m_pTarget->Resize(bytes); });
  }
  ESystemError Lock() override {
    return Call(kLock, [&] { return m_pTarget->Lock(); });
  }
  ESystemError IsNamed(const std::string& path, bool& is) override {
    is = false;
    return Call(kIsNamed, [&] { return m_pTarget->IsNamed(path, is); });
  }
  ESystemError Note(std::string& text) override {
    text.clear();
    return Call(kReadNote, [&] { return m_pTarget->Note(text); });
  }
  ESystemError SetNote(const std::string& text) override {
    return Call(kWriteNote, [&] { return m_pTarget->SetNote(text); });
  }

 protected:
  template <typename Forward>
  ESystemError Call(EOperation operation, const Forward& forward) {
    return m_system.Call(operation, m_strPath, forward);
  }

  CForwardingSystem& m_system;
  const std::string m_strPath;
  const std::unique_ptr<ISystemFile> m_pTarget;
};

/// Hands every call on to the directory of another system, as its operations on
/// whole paths are. Must not outlive the system that opened it.
class CForwardingDirectory : public ISystemDirectory {
  using enum EOperation;

 public:
  /// @param path without a separator at its end
  CForwardingDirectory(CForwardingSystem& system, std::string path,
                       std::unique_ptr<ISystemDirectory> target)
      : m_system(system), m_strPath(std::move(path)), m_pTarget(std::move(target)) {}

  ESystemError OpenFile(const std::string& name, EOpenMode mode,
                        std::unique_ptr<ISystemFile>& file) override {
    file = nullptr;
    const ESystemError error =
        Call(kOpen, name, [&] { return m_pTarget->OpenFile(name, mode, file); });
    if (file != nullptr) file = m_system.Wrap(PathOfName(name), std::move(file));
    return error;
  }
  ESystemError QueryFile(const std::string& name, SFileLook& look) override {
    look = SFileLook();
    return Call(kQuery, name, [&] { return m_pTarget->QueryFile(name, look); });
  }
  ESystemError RemoveFile(const std::string& name) override {
    return Call(kRemove, name, [&] { return m_pTarget->RemoveFile(name); });
  }
  ESystemError RenameFile(const std::string& from, const std::string& to, bool replace) override {
    return Call(kRename, to, [&] { return m_pTarget->RenameFile(from, to, replace); });
  }
  ESystemError SetTime(const std::string& name, std::int64_t time) override {
    return Call(kSetTime, name, [&] { return m_pTarget->SetTime(name, time); });
  }
  ESystemError SetMode(const std::string& name, unsigned mode) override {
    return Call(kSetMode, name, [&] { return m_pTarget->SetMode(name, mode); });
  }

 private:
  std::string PathOfName(const std::string& name) const { return m_strPath + "/" + name; }

  template <typename Forward>
  ESystemError Call(EOperation operation, const std::string& name, const Forward& forward) {
    return m_system.Call(operation, PathOfName(name), forward);
  }

  CForwardingSystem& m_system;
  const std::string m_strPath;
  const std::unique_ptr<ISystemDirectory> m_pTarget;
};
