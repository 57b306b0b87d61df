#include "daemon/plugins/context_store.h"

#include <cerrno>
#include <cstdio>

#include "base/file_access.h"
#include "base/system_call.h"
#include "paddock/sys_logger.h"
#include "wire/property_list.h"

namespace paddock {
namespace {

constexpr std::size_t kMaximumContext = 64U << 20U;
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

std::string fileName(const std::string& plugin) { return plugin + ".plist"; }

}  // namespace

ContextStore::ContextStore(std::string folder)
    : path_(std::move(folder)), folder_(openOwnFolder(path_, kFolderMode)) {}

Dictionary ContextStore::load(const std::string& plugin) const {
  const std::string path = path_ + "/" + fileName(plugin);
  std::string problem;
  try {
    const auto text = readSmallFile(path, kMaximumContext);
    if (!text) return {};
    if (auto value = wire::parsePropertyList(*text, problem)) {
      if (Dictionary* dictionary = value->dictionary()) return std::move(*dictionary);
      problem = "it is not a dictionary";
    }
  } catch (const std::exception& error) {
    problem = error.what();
  }
  logMessage(3, "context of plug-in " + plugin + " is damaged and starts empty: " + problem);
  if (::rename(path.c_str(), (path + ".damaged").c_str()) != 0) {
    logMessage(3, systemError(errno, "rename", path).what());
  }
  return {};
}

ContextStore::Slot& ContextStore::slotOf(const std::string& plugin) {
  const MutexLock lock(mutex_);
  auto& slot = slots_[plugin];
  if (!slot) slot = std::make_unique<Slot>();
  return *slot;
}

void ContextStore::saveIfDirty(const std::string& plugin, Context& context) {
  Slot& slot = slotOf(plugin);
  // Taken and written under one lock, so that an older state never replaces a newer one.
  const MutexLock lock(slot.mutex);
  const auto contents = context.takeDirty();
  if (!contents) return;
  try {
    replaceFile(folder_.get(), fileName(plugin), wire::writePropertyList(*contents), kFileMode);
    slot.failed = false;
  } catch (const std::exception& error) {
    context.set(Context::kDirtyKey, true);
    if (!slot.failed) {
      logMessage(3, "context of plug-in " + plugin + " not saved: " + error.what());
    }
    slot.failed = true;
  }
}

}  // namespace paddock
