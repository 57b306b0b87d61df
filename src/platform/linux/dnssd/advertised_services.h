// The services that this host itself advertises over DNS-SD, as reported by the Avahi daemon.
#pragma once

#include <chrono>
#include <string>

namespace paddock {

struct AdvertisedService {
  enum class Outcome {
    found,     // `name` is what the service is called on the network
    notFound,  // the daemon reported none within the time limit
    noDaemon,  // no Avahi daemon runs
    unknown,   // the query failed, see `reason`
  };
  Outcome outcome = Outcome::unknown;
  std::string name;
  std::string reason;
};

// Waits until this host advertises a service of the type ("_adisk._tcp") with a string in its TXT
// record that holds `text`, no longer than `limit`. A call of Avahi's library that takes longer
// continues in the background, and its answer is dropped. Thread-safe.
AdvertisedService findAdvertised(const std::string& type, const std::string& text,
                                 std::chrono::milliseconds limit);

}  // namespace paddock
