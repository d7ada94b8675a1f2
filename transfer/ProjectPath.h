#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "KQFTransferExport.h"

/// Names of files below a project: parts with "/" between them.

/// Our own files in a project's directory, no part of the user's tree.
constexpr char kInventoryName[] = "kqft.inventory";
constexpr char kOtherInventoryName[] = "kqft.inventory.old";
constexpr char kDamageNoteName[] = "kqft.damaged";
constexpr char kSendingNoteName[] = "kqft.sending";

constexpr std::size_t kLongestProjectPath = 4096;

/// True for the names above, in letters of any case.
KQFT_TRANSFER_API bool IsOwnFile(std::string_view path);

/// Why a name must not be that of a file below a project: it would lead
/// elsewhere, is one of our own, or could not be sent ("\" separates in the
/// protocol). "" when it may be.
KQFT_TRANSFER_API std::string WhyNoPath(std::string_view path);
