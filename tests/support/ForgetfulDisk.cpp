// A disk that forgets what was not flushed.

#include "support/ForgetfulDisk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "platform/ForwardingFile.h"

namespace {

std::string Plain(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string Above(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

struct CForgetfulDisk::SNode {
  explicit SNode(bool directory) : m_bDirectory(directory) {}

  const bool m_bDirectory;
  Nodes m_names;           // of a directory, on the disk
  std::string m_strBytes;  // of a file, on the disk
  std::string m_strNote;   // on the disk
  std::string m_strBegun;  // is being written out
  std::string m_strOut;    // has been
};

class CForgetfulDisk::CFile final : public CForwardingFile {
 public:
  CFile(CForgetfulDisk& disk, const std::string& path, std::unique_ptr<ISystemFile> file,
        std::shared_ptr<SNode> node)
      : CForwardingFile(disk, path, std::move(file)), m_disk(disk), m_pNode(std::move(node)) {}

  ESystemError Flush() override {
    const ESystemError error = Call(EOperation::kFlush, [] { return ESystemError::kNone; });
    if (error != ESystemError::kNone) return error;
    std::string note;
    m_pTarget->Note(note);
    const std::string bytes = Bytes();
    const std::lock_guard lock(m_disk.m_mutex);
    m_pNode->m_strNote = note;
    m_pNode->m_strBytes = m_pNode->m_strBegun = m_pNode->m_strOut = bytes;
    return error;
  }
  ESystemError StartFlush() override {
    const ESystemError error = Call(EOperation::kStartFlush, [] { return ESystemError::kNone; });
    if (error != ESystemError::kNone) return error;
    std::string bytes = Bytes();
    const std::lock_guard lock(m_disk.m_mutex);
    m_pNode->m_strOut = std::exchange(m_pNode->m_strBegun, std::move(bytes));
    return error;
  }

 private:
  std::string Bytes() {
    std::string bytes(1 << 20, '\0');
    std::int64_t read = 0;
    const SReadPart part = {bytes.data(), bytes.size()};
    m_pTarget->ReadAt(&part, 1, 0, read);
    bytes.resize(static_cast<std::size_t>(read));
    return bytes;
  }

  CForgetfulDisk& m_disk;
  const std::shared_ptr<SNode> m_pNode;
};

CForgetfulDisk::CForgetfulDisk(const std::string& root)
    : CForwardingSystem(System()), m_strRoot(Plain(root)), m_pBefore(ReplaceSystem(this)) {
  m_now[m_strRoot] = std::make_shared<SNode>(true);
}

CForgetfulDisk::~CForgetfulDisk() {
  ReplaceSystem(m_pBefore);
}

void CForgetfulDisk::Plan(int from, int directory) {
  const std::lock_guard lock(m_mutex);
  m_nChanges = 0;
  m_nFailFrom = from;
  m_nDirectory = directory;
  m_bFailed = false;
}

bool CForgetfulDisk::HasFailed() const {
  const std::lock_guard lock(m_mutex);
  return m_bFailed;
}

ESystemError CForgetfulDisk::Before(EOperation operation, const std::string& path) {
  using enum EOperation;
  constexpr EOperation kChanges[] = {kOpen,  kRemove, kRename,     kMakeDirectory, kFlushDirectory,
                                     kWrite, kFlush,  kStartFlush, kResize,        kWriteNote};
  const std::lock_guard lock(m_mutex);
  const bool counts =
      Plain(path).rfind(m_strRoot, 0) == 0 &&
      std::find(std::begin(kChanges), std::end(kChanges), operation) != std::end(kChanges);
  if (operation == kFlushDirectory && m_nDirectory > 0 && --m_nDirectory == 0) {
    return ESystemError::kOther;
  }
  if (!counts || m_nFailFrom == 0 || ++m_nChanges < m_nFailFrom) return ESystemError::kNone;
  m_bFailed = true;
  return ESystemError::kOther;
}

std::unique_ptr<ISystemFile> CForgetfulDisk::Wrap(const std::string& path,
                                                  std::unique_ptr<ISystemFile> file) {
  const std::lock_guard lock(m_mutex);
  std::shared_ptr<SNode>& node = m_now[Plain(path)];
  if (node == nullptr) node = std::make_shared<SNode>(false);
  return std::make_unique<CFile>(*this, path, std::move(file), node);
}

ESystemError CForgetfulDisk::OpenFile(const std::string& path, EOpenMode mode,
                                      std::unique_ptr<ISystemFile>& file) {
  if (Plain(path).rfind(m_strRoot, 0) == 0) return CForwardingSystem::OpenFile(path, mode, file);
  return m_target.OpenFile(path, mode, file);
}

ESystemError CForgetfulDisk::RemoveFile(const std::string& path) {
  const ESystemError error = CForwardingSystem::RemoveFile(path);
  const std::lock_guard lock(m_mutex);
  if (error == ESystemError::kNone) m_now.erase(Plain(path));
  return error;
}

ESystemError CForgetfulDisk::RenameFile(const std::string& from, const std::string& to) {
  const ESystemError error = CForwardingSystem::RenameFile(from, to);
  const std::lock_guard lock(m_mutex);
  if (error != ESystemError::kNone) return error;
  m_now[Plain(to)] = m_now[Plain(from)];
  m_now.erase(Plain(from));
  return error;
}

ESystemError CForgetfulDisk::MakeDirectory(const std::string& path) {
  const ESystemError error = CForwardingSystem::MakeDirectory(path);
  const std::lock_guard lock(m_mutex);
  if (error == ESystemError::kNone) m_now[Plain(path)] = std::make_shared<SNode>(true);
  return error;
}

ESystemError CForgetfulDisk::FlushDirectory(const std::string& path) {
  const ESystemError error = Before(EOperation::kFlushDirectory, path);
  const std::lock_guard lock(m_mutex);
  const auto found = m_now.find(Plain(path));
  if (error != ESystemError::kNone || found == m_now.end()) return error;
  found->second->m_names.clear();
  for (const auto& [name, node] : m_now) {
    if (name != found->first && Above(name) == found->first) found->second->m_names[name] = node;
  }
  return error;
}

// What can be reached by names that lie on the disk.
void CForgetfulDisk::Keep(const Nodes& names, const std::string& directory, Nodes& kept) const {
  for (const auto& [name, node] : names) {
    const std::string path = directory + name.substr(name.rfind('/'));
    kept[path] = node;
    Keep(node->m_names, path, kept);
  }
}

void CForgetfulDisk::LosePower(bool keepsNames) {
  Nodes kept = m_now;
  if (keepsNames) {
    for (const auto& [path, node] : m_now) {
      if (node->m_bDirectory) continue;
      node->m_strBytes = node->m_strOut;
      node->m_strBytes.resize(static_cast<std::size_t>(FileSize(path)), '\0');
      Open(path)->Note(node->m_strNote);
    }
  } else {
    kept.clear();
    Keep(m_now[m_strRoot]->m_names, m_strRoot, kept);
  }
  Become(kept);
}

std::unique_ptr<ISystemFile> CForgetfulDisk::Open(const std::string& path) const {
  std::unique_ptr<ISystemFile> file;
  EXPECT_EQ(m_target.OpenFile(path, EOpenMode::kUpdate, file), ESystemError::kNone);
  return file;
}

// All of it then lies on the disk.
void CForgetfulDisk::Become(const Nodes& kept) {
  m_nFailFrom = 0;
  for (const auto& [path, node] : m_now) {
    if (!node->m_bDirectory) Open(path)->SetNote("");
  }
  for (const auto& entry : std::filesystem::directory_iterator(m_strRoot)) {
    std::filesystem::remove_all(entry);
  }
  m_now = {{m_strRoot, std::make_shared<SNode>(true)}};
  for (const auto& [path, node] : kept) {
    if (path == m_strRoot) continue;
    m_now[path] = node;
    m_now[Above(path)]->m_names[path] = node;
    node->m_names.clear();
    if (node->m_bDirectory) {
      std::filesystem::create_directory(path);
      continue;
    }
    WriteWholeFile(path, node->m_strBytes);
    Open(path)->SetNote(node->m_strNote);
    node->m_strBegun = node->m_strOut = node->m_strBytes;
  }
}
