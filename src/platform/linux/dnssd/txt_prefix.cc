#include "platform/linux/dnssd/txt_prefix.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

#include "base/file_access.h"
#include "platform/net_service.h"

namespace paddock::dns_sd {

namespace {

constexpr std::size_t kEthernetPacket = 1500;
// The headers of IP, UDP and DNS, and the service's name, of up to 63 bytes, in every record.
constexpr std::size_t kOverhead = 200;

bool isAdvertisedOn(unsigned flags) {
  constexpr unsigned kWanted = IFF_UP | IFF_MULTICAST;
  return (flags & kWanted) == kWanted && (flags & (IFF_LOOPBACK | IFF_POINTOPOINT)) == 0;
}

std::optional<std::size_t> packetOf(const FileDescriptor& socket, const char* interface) {
  ifreq request{};
  std::strncpy(request.ifr_name, interface, sizeof request.ifr_name - 1);
  if (::ioctl(socket.get(), SIOCGIFMTU, &request) != 0 || request.ifr_mtu <= 0) return std::nullopt;
  return static_cast<std::size_t>(request.ifr_mtu);
}

}  // namespace

std::size_t mostTxtBytes(std::size_t packet) {
  return std::min(packet - std::min(packet, kOverhead), kMaximumTxtRecord);
}

std::size_t smallestPacket() {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return kEthernetPacket;
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> addresses(list, ::freeifaddrs);
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  std::optional<std::size_t> smallest;
  for (const ifaddrs* one = list; one != nullptr; one = one->ifa_next) {
    if (!isAdvertisedOn(one->ifa_flags)) continue;
    const auto packet = packetOf(socket, one->ifa_name);
    if (packet) smallest = std::min(smallest.value_or(*packet), *packet);
  }
  return smallest.value_or(kEthernetPacket);
}

TxtPrefix txtPrefix(const Data& txt, std::size_t bytes) {
  std::vector<std::string> strings;
  stringsOfTxtRecord(txt, strings);
  TxtPrefix prefix;
  std::size_t size = 0;
  for (const std::string& text : strings) {
    if (!prefix.leftOut.empty() || size + 1 + text.size() > bytes) {
      prefix.leftOut.push_back(text);
      continue;
    }
    size += 1 + text.size();
    ++prefix.strings;
  }
  prefix.data.bytes.assign(txt.bytes.begin(),
                           txt.bytes.begin() + static_cast<std::ptrdiff_t>(size));
  return prefix;
}

}  // namespace paddock::dns_sd
