#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "transfer/Inventory.h"
#include "transfer/TransferItem.h"

/// How one file of a put gets to the server.
struct SPutWay {
  SFileFacts m_facts;  ///< of the file here, of which what is sent is a part

  /// What the server holds of this recording is to be emptied first.
  bool m_bEmpty = false;

  /// Blocks that are sent to their places before the rest; counted from 0.
  std::vector<std::int64_t> m_vecBlocks;
  std::int64_t m_llHeld = 0;  ///< bytes that the server holds where those go

  /// The blocks only repair what the inventory tells: its entry stays true.
  bool m_bRepair = false;

  /// What the server holds of this recording is of no one version now.
  bool m_bMixed = false;

  bool m_bBegun = false;  ///< something of the server's copy has been changed

  /// What was known of the server's copy before; null when nothing was.
  std::shared_ptr<const SInventoryEntry> m_pFormer;

  /// Of a recording that goes on: its beginning as it was read here.
  std::shared_ptr<CFileDigest> m_pBeginning;

  /// Facts and digests of the whole file, when all of it was read.
  std::shared_ptr<const SInventoryEntry> m_pEntry;
};

/// By item; of those that are to be sent.
using PutWays = std::map<const STransferItem*, SPutWay>;
