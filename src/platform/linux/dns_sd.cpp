#include "dns_sd.hpp"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>

#include <algorithm>
#include <memory>

namespace orvante::platform::linux_devices {
namespace {

constexpr const char* kRawPrinting = "_pdl-datastream._tcp";

struct Browse {
  AvahiClient* client = nullptr;
  std::vector<FoundPrinter> found;
  int resolving = 0;
};

void resolved(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent event,
              const char* name, const char*, const char*, const char*, const AvahiAddress* address,
              uint16_t port, AvahiStringList*, AvahiLookupResultFlags, void* context) {
  auto& browse = *static_cast<Browse*>(context);
  if (event == AVAHI_RESOLVER_FOUND && address) {
    char text[AVAHI_ADDRESS_STR_MAX];
    avahi_address_snprint(text, sizeof text, address);
    const std::string uri = "tcp://" + std::string(text) + ":" + std::to_string(port);
    const bool known =
        std::any_of(browse.found.begin(), browse.found.end(),
                    [&](const FoundPrinter& printer) { return printer.address == uri; });
    if (!known) browse.found.push_back({uri, name ? name : ""});
  }
  --browse.resolving;
  avahi_service_resolver_free(resolver);
}

void browsed(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
             AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
             AvahiLookupResultFlags, void* context) {
  auto& browse = *static_cast<Browse*>(context);
  if (event != AVAHI_BROWSER_NEW) return;
  if (avahi_service_resolver_new(browse.client, interface, protocol, name, type, domain,
                                 AVAHI_PROTO_INET, static_cast<AvahiLookupFlags>(0), resolved,
                                 &browse)) {
    ++browse.resolving;
  }
}

}  // namespace

std::vector<FoundPrinter> browseNetworkPrinters(std::chrono::milliseconds timeout,
                                                std::string& why) {
  const std::unique_ptr<AvahiSimplePoll, void (*)(AvahiSimplePoll*)> poll(avahi_simple_poll_new(),
                                                                          avahi_simple_poll_free);
  if (!poll) {
    why = "no DNS-SD: out of memory";
    return {};
  }
  Browse browse;
  int error = 0;
  browse.client = avahi_client_new(
      avahi_simple_poll_get(poll.get()), static_cast<AvahiClientFlags>(0),
      [](AvahiClient*, AvahiClientState, void*) {}, nullptr, &error);
  if (!browse.client) {
    why = std::string("no network printers searched: ") + avahi_strerror(error);
    return {};
  }
  const std::unique_ptr<AvahiClient, void (*)(AvahiClient*)> client(browse.client,
                                                                    avahi_client_free);
  AvahiServiceBrowser* browser =
      avahi_service_browser_new(browse.client, AVAHI_IF_UNSPEC, AVAHI_PROTO_INET, kRawPrinting,
                                nullptr, static_cast<AvahiLookupFlags>(0), browsed, &browse);
  if (!browser) {
    why = std::string("no network printers searched: ") +
          avahi_strerror(avahi_client_errno(browse.client));
    return {};
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    if (avahi_simple_poll_iterate(poll.get(), static_cast<int>(left.count())) != 0) break;
  }
  avahi_service_browser_free(browser);
  return browse.found;
}

}  // namespace orvante::platform::linux_devices
