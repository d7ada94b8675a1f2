#pragma once

#include <string>

/// An IPv4 address, host byte order, as dotted text.
std::string AddressText(unsigned int ip);
