#include "paddock/host.h"

#include <atomic>
#include <stdexcept>

namespace paddock {
namespace {

std::atomic<Host*> gHost{nullptr};

}  // namespace

void installHost(Host* host) { gHost.store(host, std::memory_order_release); }

Host& host() {
  Host* installed = gHost.load(std::memory_order_acquire);
  if (installed == nullptr) throw std::logic_error("no host is installed");
  return *installed;
}

std::string hostPath(std::string_view path) {
  const Host* installed = gHost.load(std::memory_order_acquire);
  if (installed == nullptr) return std::string(path);
  return std::string(installed->root()).append(path);
}

}  // namespace paddock
