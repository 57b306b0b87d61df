// The advertised part of a TXT record.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::dns_sd {

// Maximum bytes of a record for this packet size: the Avahi daemon sends nothing of a record that
// does not fit into one packet with its header and names. 1,300 on Ethernet, as RFC 6763, section
// 6.2, recommends; never more than kMaximumTxtRecord.
std::size_t mostTxtBytes(std::size_t packet);

// The largest packet accepted by every network on which the Avahi daemon advertises: the smallest
// MTU of the interfaces that are up and can multicast, except loopback and point-to-point ones.
// That of Ethernet, 1500, when there is none or it cannot be determined.
std::size_t smallestPacket();

struct TxtPrefix {
  Data data;
  std::size_t strings = 0;  // in the data
  std::vector<std::string> leftOut;
};

// The leading strings of a TXT record that fit into `bytes`. Precondition: `stringsOfTxtRecord`
// accepts it.
TxtPrefix txtPrefix(const Data& txt, std::size_t bytes);

}  // namespace paddock::dns_sd
