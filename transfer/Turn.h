#pragma once

#include <memory>
#include <string>

#include "platform/System.h"

struct SServerPlace;

/// The turn of one user of this machine at one server. The server gives a
/// second link of an address the session of the first, which then fails; so
/// whoever connects takes the turn before.
///
/// It is a lock on a file in the user's state directory, which ends with the
/// process; the file stays and tells who has it.
class CTurn {
 public:
  explicit CTurn(const SServerPlace& place);

  /// @return false while another one has it; true also where there is no such
  ///         directory, or none is wanted
  bool Take();
  void GiveBack() { m_pFile = nullptr; }

  /// Who had it when Take failed last, in words.
  const std::string& Holder() const { return m_strHolder; }

  /// Names who takes this turn, among all machines: of two runs with one name
  /// the earlier has ended. "" when that is not certain.
  std::string Workstation() const { return m_pFile == nullptr ? "" : m_strName; }

 private:
  std::string m_strMine;  // what others are told
  std::string m_strName;
  std::string m_strPath;  // "" when there is nothing to take
  std::string m_strHolder;
  std::unique_ptr<ISystemFile> m_pFile;  // locked
};
