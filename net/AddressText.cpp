// Addresses as people read them.

#include "net/AddressText.h"

std::string AddressText(unsigned int ip) {
  return std::to_string(ip >> 24) + '.' + std::to_string(ip >> 16 & 0xff) + '.' +
         std::to_string(ip >> 8 & 0xff) + '.' + std::to_string(ip & 0xff);
}
