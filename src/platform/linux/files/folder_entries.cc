#include "platform/linux/files/folder_entries.h"

#include <string_view>

#include "base/system_call.h"

namespace paddock {

const dirent64* FolderEntries::take() {
  if (rest_.empty()) return nullptr;
  const auto* entry = reinterpret_cast<const dirent64*>(rest_.data());
  rest_ = rest_.subspan(entry->d_reclen);
  return entry;
}

const dirent64* FolderEntries::next() {
  while (const dirent64* entry = take()) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") return entry;
  }
  return nullptr;
}

std::vector<char> FolderEntries::cutHalf() {
  const std::span<const char> all = rest_;
  while (rest_.size() * 2 > all.size()) take();
  std::vector<char> half(rest_.begin(), rest_.end());
  rest_ = all.first(all.size() - rest_.size());
  return half;
}

int readEntries(int folder, std::span<char> buffer, std::span<const char>& entries,
                std::int64_t& position) {
  std::size_t count = 0;
  const int error =
      errnoOf([&] { return ::getdents64(folder, buffer.data(), buffer.size()); }, &count);
  entries = buffer.first(error == 0 ? count : 0);
  // The last one says where its successor is.
  FolderEntries rest(entries);
  while (const dirent64* entry = rest.take()) position = entry->d_off;
  return error;
}

}  // namespace paddock
