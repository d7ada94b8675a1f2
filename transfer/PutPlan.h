#pragma once

#include <cstdint>
#include <vector>

#include "transfer/PutWay.h"
#include "transfer/Transfer.h"

class CPutInventories;

/// Decides what of a put has to be sent, and how: sets every item's reason and
/// m_llMissing, m_bDone for those that stay as they are and m_bFinal for those
/// that cannot be sent. Nothing of the server is changed.
///
/// A recording goes on behind what the server holds only where that is known
/// to be its beginning: by the inventory, or, when nothing is known of it, by a
/// look at the end of it.
class CPutPlan {
 public:
  struct SChoice {
    bool m_bWhole = false;     ///< send everything whole
    bool m_bChecksum = false;  ///< compare the bytes also where size and time agree
    bool m_bPlanOnly = false;  ///< ask nothing that could make a file at the server
  };

  CPutPlan(const STransferTools& tools, const SChoice& choice, const CPutInventories& inventories);

  /// @param facts of each item, as they were when it was found: they do for one that the
  ///              server has nothing of, which is looked at once more before it is sent
  /// @return 1, or why the server could not be asked
  /// Blocks:  for as long as files are read here; Cancel ends it
  int Make(std::vector<STransferItem>& items, const std::vector<SFileFacts>& facts);

  /// Names whose sizes Make asks for first, expecting 0.
  static std::vector<std::string> Asked(const std::vector<STransferItem>& items);

  PutWays& Ways() { return m_ways; }

 private:
  struct SHeld {
    std::int64_t m_llSize = -1;  // below 0: not known
    bool m_bSides = false;       // what side files tell of the recording has to be looked at
  };
  static bool IsRecording(const STransferItem& item);
  int AskHeld(std::vector<STransferItem>& items, std::vector<SHeld>& held);
  int Decide(STransferItem& item, const SHeld& held, const SFileFacts& found);
  int DecideUnknown(STransferItem& item, const SHeld& held, SPutWay& way);
  int DecideKnown(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                  SPutWay& way);
  int DecidePlanned(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                    SPutWay& way);
  int DecideSame(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                 SPutWay& way);
  int DecideRead(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                 SPutWay& way);
  int GoOn(STransferItem& item, const SHeld& held, std::int64_t before, SPutWay& way);
  void Heal(STransferItem& item, const SHeld& held, const SInventoryEntry& entry, SPutWay& way);
  int LookAtSides(STransferItem& item, const SHeld& held, SPutWay& way);
  int CompareEnd(STransferItem& item, const SHeld& held, SPutWay& way);
  void DecideSideFiles(std::vector<STransferItem>& items);
  void SendWhole(STransferItem& item, const SHeld& held, SPutWay& way) const;
  void Done(STransferItem& item, EReason reason, const SInventoryEntry* entry, SPutWay& way) const;

  const STransferTools m_tools;
  const SChoice m_choice;
  const CPutInventories& m_inventories;
  PutWays m_ways;
  bool m_bToldReading = false;
};
