// A service registered with the Avahi daemon under one name.
//
// All functions but `wrongIn` require the lock of the poll thread, and may block (see
// avahi_connection.h). Error numbers are those of avahi-common/error.h. See avahi-client/publish.h.
#pragma once

#include <avahi-client/publish.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/value.h"

namespace paddock::dns_sd {

class AvahiConnection;

struct ServiceDescription {
  std::string domain;  // empty: the default one
  std::string type;    // "_adisk._tcp"
  std::string name;    // empty: the host's
  std::uint16_t port = 0;
  friend bool operator==(const ServiceDescription&, const ServiceDescription&) = default;
};

// Validates a description: 0 or an error. An invalid one is never passed to the library, which
// aborts the process when a text is not UTF-8.
int wrongIn(const ServiceDescription& description);

class AvahiEntry {
 public:
  // `changed` is called after each change of the state, on the poll thread or in a call; it may not
  // call back. The connection outlives the entry.
  AvahiEntry(const ServiceDescription& description, std::string name,
             std::function<void()> changed);
  AvahiEntry(const AvahiEntry&) = delete;
  AvahiEntry& operator=(const AvahiEntry&) = delete;
  // Withdraws the service, unless `forget` was called.
  ~AvahiEntry() = default;

  // Starts publishing. Returns 0, or an error: AVAHI_ERR_COLLISION when this host has the name
  // already.
  int publish(AvahiConnection& connection, const Data& txt);
  // Precondition: publishing was started. Returns 0 or an error.
  int setTxt(const Data& txt);
  // Leaves the withdrawal to the end of the connection, which must come next.
  void forget() { (void)group_.release(); }

  // AVAHI_ENTRY_GROUP_COLLISION when another host has the name.
  AvahiEntryGroupState state() const { return state_; }
  // The error of the state AVAHI_ENTRY_GROUP_FAILURE.
  int error() const { return error_; }

 private:
  struct Free {
    void operator()(AvahiEntryGroup* group) const { avahi_entry_group_free(group); }
  };

  static void stateChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* entry);

  const char* domain() const;

  const ServiceDescription description_;
  const std::string name_;
  const std::function<void()> changed_;
  AvahiEntryGroupState state_ = AVAHI_ENTRY_GROUP_UNCOMMITED;
  int error_ = 0;
  std::unique_ptr<AvahiEntryGroup, Free> group_;
};

}  // namespace paddock::dns_sd
