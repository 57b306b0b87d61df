// How much of a TXT record is advertised.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::dns_sd {

// How many bytes of a record are advertised where packets have at most so many: the Avahi daemon
// sends nothing of a record that does not fit into one packet with its header and names. 1,300 on
// Ethernet, as RFC 6763, section 6.2, recommends; never more than kMaximumTxtRecord.
std::size_t mostTxtBytes(std::size_t packet);

// The largest packet that every network takes on which the Avahi daemon advertises: the smallest
// MTU of the interfaces that are up and can multicast, the loopback and point-to-point ones left
// out. That of Ethernet, 1500, when there is none or it cannot be told.
std::size_t smallestPacket();

struct TxtPrefix {
  Data data;
  std::size_t strings = 0;  // in the data
  std::vector<std::string> leftOut;
};

// The first strings of a TXT record, as many as fit into so many bytes. Precondition:
// `stringsOfTxtRecord` takes it.
TxtPrefix txtPrefix(const Data& txt, std::size_t bytes);

}  // namespace paddock::dns_sd
