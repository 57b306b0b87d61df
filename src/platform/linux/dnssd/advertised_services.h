// Which services this host itself advertises over DNS-SD, as the Avahi daemon tells it.
#pragma once

#include <chrono>
#include <string>

namespace paddock {

struct AdvertisedService {
  enum class Outcome {
    found,     // `name` is what the service is called on the network
    notFound,  // the daemon knows of none, until the time was over
    noDaemon,  // no Avahi daemon runs
    unknown,   // `reason` says why it could not be asked
  };
  Outcome outcome = Outcome::unknown;
  std::string name;
  std::string reason;
};

// Waits until this host advertises a service of the type ("_adisk._tcp") with a string in its TXT
// record that holds `text`, no longer than `limit`. A call of Avahi's library that takes longer
// goes on by itself, and its answer is dropped. Any thread.
AdvertisedService findAdvertised(const std::string& type, const std::string& text,
                                 std::chrono::milliseconds limit);

}  // namespace paddock
