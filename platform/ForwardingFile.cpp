// What a forwarding system gives out for files and directories that it opened.

#include "platform/ForwardingFile.h"

std::unique_ptr<ISystemFile> CForwardingSystem::Wrap(const std::string& path,
                                                     std::unique_ptr<ISystemFile> file) {
  return std::make_unique<CForwardingFile>(*this, path, std::move(file));
}

ESystemError CForwardingSystem::OpenDirectory(const std::string& top, const std::string& below,
                                              bool make,
                                              std::unique_ptr<ISystemDirectory>& directory) {
  directory = nullptr;
  const std::string path = below.empty() ? top : top + "/" + below;
  const ESystemError error = Call(
      kOpenDirectory, path, [&] { return m_target.OpenDirectory(top, below, make, directory); });
  if (directory != nullptr) {
    directory = std::make_unique<CForwardingDirectory>(*this, path, std::move(directory));
  }
  return error;
}
