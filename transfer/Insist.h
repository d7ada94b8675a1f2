#pragma once

#include <functional>

struct STransferTools;

/// True for what the server has answered: trying again is of no use, and the
/// link stays good.
bool IsRefusal(int code);

/// Repeats something that needs the link, until it is done or the server
/// refuses it; connects again in between. A link on which something failed is
/// not used again: late answers may be on it.
/// @return 1, or the last failure
int Insist(const STransferTools& tools, const std::function<int()>& act);
