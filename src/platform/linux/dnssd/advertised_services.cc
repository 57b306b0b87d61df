#include "platform/linux/dnssd/advertised_services.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>
#include <avahi-common/strlst.h>

#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace paddock {

namespace {

using Outcome = AdvertisedService::Outcome;

struct Deleter {
  void operator()(AvahiSimplePoll* poll) const { avahi_simple_poll_free(poll); }
  void operator()(AvahiClient* client) const { avahi_client_free(client); }
  void operator()(AvahiServiceBrowser* browser) const { avahi_service_browser_free(browser); }
};

// One search. The client frees its resolvers.
class Search {
 public:
  Search(std::string type, std::string text) : type_(std::move(type)), text_(std::move(text)) {}

  AdvertisedService run(std::chrono::milliseconds limit);

 private:
  static void clientChanged(AvahiClient* client, AvahiClientState state, void* search);
  static void browsed(AvahiServiceBrowser* browser, AvahiIfIndex interface, AvahiProtocol protocol,
                      AvahiBrowserEvent event, const char* name, const char* type,
                      const char* domain, AvahiLookupResultFlags flags, void* search);
  static void resolved(AvahiServiceResolver* resolver, AvahiIfIndex interface,
                       AvahiProtocol protocol, AvahiResolverEvent event, const char* name,
                       const char* type, const char* domain, const char* host,
                       const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                       AvahiLookupResultFlags flags, void* search);
  AdvertisedService failed(int error) const {
    const bool isStopped = error == AVAHI_ERR_NO_DAEMON || error == AVAHI_ERR_DISCONNECTED;
    return {isStopped ? Outcome::noDaemon : Outcome::unknown, {}, avahi_strerror(error)};
  }
  bool holdsText(AvahiStringList* txt) const;

  const std::string type_;
  const std::string text_;
  std::unique_ptr<AvahiSimplePoll, Deleter> poll_;
  std::unique_ptr<AvahiClient, Deleter> client_;
  int error_ = 0;
  bool isFound_ = false;
  std::string name_;
};

AdvertisedService Search::run(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  poll_.reset(avahi_simple_poll_new());
  if (!poll_) return failed(AVAHI_ERR_NO_MEMORY);
  int error = 0;
  client_.reset(avahi_client_new(avahi_simple_poll_get(poll_.get()),
                                 AVAHI_CLIENT_IGNORE_USER_CONFIG, clientChanged, this, &error));
  if (!client_) return failed(error);
  const std::unique_ptr<AvahiServiceBrowser, Deleter> browser(
      avahi_service_browser_new(client_.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type_.c_str(),
                                nullptr, AvahiLookupFlags{}, browsed, this));
  if (!browser) return failed(avahi_client_errno(client_.get()));
  while (!isFound_ && error_ == 0) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return {Outcome::notFound, {}, {}};
    if (avahi_simple_poll_iterate(poll_.get(), static_cast<int>(left.count())) != 0)
      return failed(AVAHI_ERR_DISCONNECTED);
  }
  return isFound_ ? AdvertisedService{Outcome::found, name_, {}} : failed(error_);
}

void Search::clientChanged(AvahiClient* client, AvahiClientState state, void* search) {
  if (state == AVAHI_CLIENT_FAILURE)
    static_cast<Search*>(search)->error_ = avahi_client_errno(client);
}

// NOLINTNEXTLINE(readability-function-size): the parameters are libavahi's.
void Search::browsed(AvahiServiceBrowser* browser, AvahiIfIndex interface, AvahiProtocol protocol,
                     AvahiBrowserEvent event, const char* name, const char* type,
                     const char* domain, AvahiLookupResultFlags flags, void* search) {
  const bool isOurs = (flags & AVAHI_LOOKUP_RESULT_LOCAL) != 0;
  if (event != AVAHI_BROWSER_NEW || !isOurs) return;
  avahi_service_resolver_new(avahi_service_browser_get_client(browser), interface, protocol, name,
                             type, domain, AVAHI_PROTO_UNSPEC, AVAHI_LOOKUP_NO_ADDRESS, resolved,
                             search);
}

bool Search::holdsText(AvahiStringList* txt) const {
  for (; txt != nullptr; txt = avahi_string_list_get_next(txt)) {
    const void* bytes = avahi_string_list_get_text(txt);
    const std::string one(static_cast<const char*>(bytes), avahi_string_list_get_size(txt));
    if (one.find(text_) != std::string::npos) return true;
  }
  return false;
}

// NOLINTNEXTLINE(readability-function-size): the parameters are libavahi's.
void Search::resolved(AvahiServiceResolver* /*resolver*/, AvahiIfIndex /*interface*/,
                      AvahiProtocol /*protocol*/, AvahiResolverEvent event, const char* name,
                      const char* /*type*/, const char* /*domain*/, const char* /*host*/,
                      const AvahiAddress* /*address*/, uint16_t /*port*/, AvahiStringList* txt,
                      AvahiLookupResultFlags /*flags*/, void* search) {
  auto& self = *static_cast<Search*>(search);
  if (event != AVAHI_RESOLVER_FOUND || !self.holdsText(txt)) return;
  self.isFound_ = true;
  self.name_ = name;
}

}  // namespace

AdvertisedService findAdvertised(const std::string& type, const std::string& text,
                                 std::chrono::milliseconds limit) {
  AdvertisedService late{Outcome::unknown, {}, "the Avahi daemon does not answer in time"};
  // The promise belongs to the thread, which may outlive this call.
  std::promise<AdvertisedService> promise;
  std::future<AdvertisedService> answer = promise.get_future();
  try {
    std::thread([type, text, limit, promise = std::move(promise)]() mutable {
      promise.set_value(Search(type, text).run(limit));
    }).detach();
  } catch (const std::system_error&) {
    return late;
  }
  constexpr std::chrono::milliseconds kAllowance{500};
  return answer.wait_for(limit + kAllowance) == std::future_status::ready ? answer.get() : late;
}

}  // namespace paddock
