// How much of a TXT record is advertised.
#pragma once

#include <cstddef>

#include "base/value.h"

namespace paddock::dns_sd {

// RFC 6763, section 6.2, recommends no more, so that a record fits into one packet: the Avahi
// daemon sends nothing of one that does not fit into a packet of the interface.
inline constexpr std::size_t kMostTxtBytes = 1300;

struct TxtPrefix {
  Data data;
  std::size_t strings = 0;  // in the data
  std::size_t leftOut = 0;  // strings
};

// The first strings of a TXT record, as many as fit into so many bytes. Precondition:
// `stringsOfTxtRecord` takes it.
TxtPrefix txtPrefix(const Data& txt, std::size_t bytes);

}  // namespace paddock::dns_sd
