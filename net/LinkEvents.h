#pragma once

/// Codes of DealNetMsg that announce a change of the link itself. They never
/// travel on the wire.
constexpr int NET_COMMAND_DISCONNECT = 0;
constexpr int NET_COMMAND_CONNECT = 1;
