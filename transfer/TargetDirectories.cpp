// Target directories: where files are fetched to.

#include "transfer/TargetDirectories.h"

#include <algorithm>
#include <utility>

#include "transfer/Names.h"

namespace {

const char kSeparators[] = "\\/";

std::size_t NameStart(const std::string& path) {
  return path.find_last_of(kSeparators) + 1;
}

}  // namespace

STargetPlace PlaceOf(const std::string& into, const STransferItem& item) {
  const std::string& local = item.m_strLocal;
  const std::size_t name = NameStart(local);
  const std::size_t begin = std::min(local.find_first_not_of(kSeparators, into.size()), name);
  STargetPlace place;
  if (begin < name) place.m_strBelow = local.substr(begin, name - 1 - begin);
  std::replace(place.m_strBelow.begin(), place.m_strBelow.end(), '\\', '/');
  place.m_strName = local.substr(name);
  place.m_strPart = PartName(place.m_strName, item.m_llSize);
  return place;
}

std::string PartPath(const STransferItem& item) {
  const std::size_t name = NameStart(item.m_strLocal);
  return item.m_strLocal.substr(0, name) + PartName(item.m_strLocal.substr(name), item.m_llSize);
}

const char* WordsFor(ESystemError error) {
  switch (error) {
    case ESystemError::kNotFound:
      return "no such file or directory";
    case ESystemError::kExists:
      return "something of this name is there";
    case ESystemError::kAccess:
      return "permission denied";
    case ESystemError::kNoSpace:
      return "no space left on the disk";
    case ESystemError::kTooMany:
      return "too many open files";
    case ESystemError::kNotRegular:
      return "something else is in its place";
    case ESystemError::kBadPath:
      return "the name cannot be used";
    default:
      return "the file system refuses it";
  }
}

CTargetDirectories::Directory CTargetDirectories::Open(const std::string& below,
                                                       ESystemError* why) {
  if (m_pOpen != nullptr && below == m_strBelow) return m_pOpen;
  std::unique_ptr<ISystemDirectory> directory;
  const ESystemError error = System().OpenDirectory(m_strInto, below, true, directory);
  if (why != nullptr) *why = error;
  m_pOpen = std::move(directory);
  m_strBelow = below;
  return m_pOpen;
}
