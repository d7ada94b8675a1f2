#pragma once

#include <memory>
#include <string>

#include "platform/System.h"
#include "transfer/TransferItem.h"

/// Where a fetched file comes to lie, below the directory of the get.
struct STargetPlace {
  std::string m_strBelow;  ///< its directory, "/" between the parts
  std::string m_strName;   ///< its name there
  std::string m_strPart;   ///< its name until it is whole
};

/// @param into the item's m_strLocal lies below it
STargetPlace PlaceOf(const std::string& into, const STransferItem& item);

/// The path of an item until it is whole.
std::string PartPath(const STransferItem& item);

/// What an error of the system means, in words.
const char* WordsFor(ESystemError error);

/// The directories that fetched files come to lie in: made where they are
/// missing, and opened once for files that follow one another.
///
/// Threads: one.
class CTargetDirectories {
 public:
  using Directory = std::shared_ptr<ISystemDirectory>;

  explicit CTargetDirectories(std::string into) : m_strInto(std::move(into)) {}

  /// @return null when it cannot be had
  Directory Open(const std::string& below, ESystemError* why = nullptr);

  /// The next one is opened anew.
  void Forget() { m_pOpen = nullptr; }

 private:
  const std::string m_strInto;
  std::string m_strBelow;  // of the one that is open
  Directory m_pOpen;
};
