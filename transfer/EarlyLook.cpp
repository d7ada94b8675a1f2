// Early look: what a put is going to find, found while it cannot do anything else.

#include "transfer/EarlyLook.h"

#include <system_error>
#include <utility>

#include "platform/System.h"

namespace {

// Where it took longer to connect, other files may be there by now.
constexpr std::int64_t kFreshMs = 1000;

}  // namespace

void CEarlyLook::Begin(const std::vector<std::string>& paths) {
  Forget();
  m_bStop = false;
  m_llBegunMs = System().SteadyMilliseconds();
  try {
    m_look = std::async(std::launch::async, [this, paths] {
      Found all;
      for (const std::string& path : paths) {
        const auto [found, isFirst] = all.try_emplace(path);
        found->second.m_pStop = &m_bStop;
        if (isFirst) CollectFiles(path, CFilter(), found->second);
      }
      return all;
    });
  } catch (const std::system_error&) {
    // The put looks itself.
  }
}

SLocalFiles CEarlyLook::Take(const std::string& path, const CFilter& filter) {
  const bool isFresh = System().SteadyMilliseconds() - m_llBegunMs <= kFreshMs;
  if (m_look.valid() && isFresh && filter.IsEmpty()) {
    m_found = m_look.get();
  } else if (m_look.valid()) {
    Forget();
  }
  SLocalFiles files;
  if (auto found = m_found.extract(path); !found.empty()) {
    files = std::move(found.mapped());
    files.m_pStop = nullptr;
  } else {
    CollectFiles(path, filter, files);
  }
  return files;
}

void CEarlyLook::Forget() {
  m_bStop = true;
  if (m_look.valid()) m_look.wait();
  m_look = std::future<Found>();
  m_found.clear();
}
