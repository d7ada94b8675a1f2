#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "programs/kqft-status/Watcher.h"

/// The page, whole, and what of it changes: the content of its <main>.
std::string Page(const std::vector<SServerView>& views, std::int64_t now);
std::string PageMain(const std::vector<SServerView>& views, std::int64_t now);
