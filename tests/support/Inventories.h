#pragma once

#include <string>
#include <vector>

#include "transfer/Inventory.h"

/// An entry with digests for a file of this machine, read from it.
SInventoryEntry EntryOf(const std::string& path);

/// A complete inventory of the named files below a directory that ends with
/// "/"; nothing is written.
CInventory InventoryOf(const std::string& directory, const std::vector<std::string>& paths);
