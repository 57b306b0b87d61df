#include "platform/linux/dnssd/avahi_entry.h"

#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/strlst.h>

#include <new>
#include <vector>

#include "base/text.h"
#include "platform/linux/dnssd/avahi_connection.h"
#include "platform/net_service.h"

namespace paddock::dns_sd {

namespace {

constexpr auto kNoPublishFlags = static_cast<AvahiPublishFlags>(0);

struct FreeStrings {
  void operator()(AvahiStringList* list) const { avahi_string_list_free(list); }
};
using Strings = std::unique_ptr<AvahiStringList, FreeStrings>;

Strings stringsOf(const Data& txt) {
  std::vector<std::string> texts;
  stringsOfTxtRecord(txt, texts);
  Strings list;
  // The library adds at the front.
  for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
    AvahiStringList* longer = avahi_string_list_add_arbitrary(
        list.get(), reinterpret_cast<const std::uint8_t*>(text->data()), text->size());
    if (longer == nullptr) throw std::bad_alloc();
    (void)list.release();
    list.reset(longer);
  }
  return list;
}

// Texts go over D-Bus, and to a C library.
bool canBeSent(const std::string& text) {
  return isValidUtf8(text) && text.find('\0') == std::string::npos;
}

}  // namespace

int wrongIn(const ServiceDescription& description) {
  const auto& [domain, type, name, port] = description;
  if (!canBeSent(type) || avahi_is_valid_service_type_strict(type.c_str()) == 0)
    return AVAHI_ERR_INVALID_SERVICE_TYPE;
  if (!canBeSent(name) || (!name.empty() && avahi_is_valid_service_name(name.c_str()) == 0))
    return AVAHI_ERR_INVALID_SERVICE_NAME;
  if (!canBeSent(domain) || (!domain.empty() && avahi_is_valid_domain_name(domain.c_str()) == 0))
    return AVAHI_ERR_INVALID_DOMAIN_NAME;
  return port == 0 ? AVAHI_ERR_INVALID_PORT : 0;
}

AvahiEntry::AvahiEntry(const ServiceDescription& description, std::string name,
                       std::function<void()> changed)
    : description_(description), name_(std::move(name)), changed_(std::move(changed)) {}

const char* AvahiEntry::domain() const {
  return description_.domain.empty() ? nullptr : description_.domain.c_str();
}

int AvahiEntry::publish(AvahiConnection& connection, const Data& txt) {
  const Strings strings = stringsOf(txt);
  group_.reset(avahi_entry_group_new(connection.client(), stateChanged, this));
  if (!group_) return avahi_client_errno(connection.client());
  if (const int error = avahi_entry_group_add_service_strlst(
          group_.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, kNoPublishFlags, name_.c_str(),
          description_.type.c_str(), domain(), nullptr, description_.port, strings.get());
      error < 0)
    return error;
  return avahi_entry_group_commit(group_.get());
}

int AvahiEntry::setTxt(const Data& txt) {
  const Strings strings = stringsOf(txt);
  return avahi_entry_group_update_service_txt_strlst(
      group_.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, kNoPublishFlags, name_.c_str(),
      description_.type.c_str(), domain(), strings.get());
}

void AvahiEntry::stateChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* entry) {
  auto& self = *static_cast<AvahiEntry*>(entry);
  self.state_ = state;
  if (state == AVAHI_ENTRY_GROUP_FAILURE)
    self.error_ = avahi_client_errno(avahi_entry_group_get_client(group));
  self.changed_();
}

}  // namespace paddock::dns_sd
