#pragma once

/// Why there is no link to a server, as far as the network tells.
enum class ELinkFailure {
  kNone,           ///< there is one, or none was asked for
  kOther,          ///< none of what follows
  kNoSuchName,     ///< the name stands for no machine
  kNoNameService,  ///< nobody who knows names has answered
  kOnlyIPv6,       ///< the name has addresses, but none of IPv4
  kLocalAddress,   ///< this machine does not have the local address that was set
  kRefused,        ///< the machine is there, and nobody listens on the port
  kUnreachable,    ///< there is no way to the machine
  kTimedOut,       ///< nothing came back in time
  kEnded,          ///< the other side ended it, or it broke
  kForeign,        ///< what the other side sends is no packet
};
