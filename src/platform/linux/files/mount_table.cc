#include "platform/linux/files/mount_table.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr std::size_t kDeviceField = 2;
constexpr std::size_t kMountPointField = 4;
constexpr std::size_t kFirstOptionalField = 6;
constexpr std::size_t kChunk = std::size_t{64} << 10U;

bool isOctalEscape(std::string_view text) {
  return text.size() >= 4 && text[0] == '\\' && text[1] >= '0' && text[1] <= '3' &&
         text[2] >= '0' && text[2] <= '7' && text[3] >= '0' && text[3] <= '7';
}

std::string decoded(std::string_view field) {
  std::string text;
  while (!field.empty()) {
    if (isOctalEscape(field)) {
      text += static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0'));
      field.remove_prefix(4);
    } else {
      text += field.front();
      field.remove_prefix(1);
    }
  }
  return text;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  while (true) {
    const std::size_t blank = line.find(' ');
    fields.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) return fields;
    line.remove_prefix(blank + 1);
  }
}

void parseLine(std::string_view line, MountTable& table) {
  const auto fields = fieldsOf(line);
  std::size_t dash = kFirstOptionalField;
  while (dash < fields.size() && fields[dash] != "-") ++dash;
  if (dash + 2 >= fields.size()) return;
  std::uint64_t id = 0;
  const std::string_view number = fields[0];
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), id);
  if (error != std::errc{} || end != number.data() + number.size()) return;
  table.byId[id] = table.volumes.size();
  table.devices.emplace_back(fields[kDeviceField]);
  table.volumes.push_back(
      {decoded(fields[kMountPointField]), decoded(fields[dash + 2]), decoded(fields[dash + 1])});
}

}  // namespace

const MountedVolume* MountTable::find(std::uint64_t mountId) const {
  const auto found = byId.find(mountId);
  return found == byId.end() ? nullptr : &volumes[found->second];
}

const MountedVolume* MountTable::findDevice(const std::string& device) const {
  const auto found = std::find(devices.begin(), devices.end(), device);
  return found == devices.end() ? nullptr
                                : &volumes[static_cast<std::size_t>(found - devices.begin())];
}

MountTable parseMountTable(std::string_view text) {
  MountTable table;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    parseLine(text.substr(0, end), table);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return table;
}

bool KeptMountTable::changed() const {
  pollfd waited{file_.get(), POLLPRI, 0};
  // A failing poll says nothing, so that the table is read.
  if (retryOnInterrupt([&] { return ::poll(&waited, 1, 0); }) < 0) return true;
  return (waited.revents & (POLLERR | POLLPRI)) != 0;
}

int KeptMountTable::update() {
  // Asking first: what changes while the table is read is reported by the next question.
  if (file_ && !changed()) return 0;
  const int error = readTable();
  if (error != 0) {
    file_.reset();
    table_ = {};
  }
  return error;
}

int KeptMountTable::readTable() {
  if (!file_) {
    int descriptor = -1;
    const int error = errnoOf([&] { return ::open(path_, O_RDONLY | O_CLOEXEC); }, &descriptor);
    if (error != 0) return error;
    file_ = FileDescriptor(descriptor);
  }
  if (::lseek(file_.get(), 0, SEEK_SET) < 0) return errno;
  std::string text;
  std::array<char, kChunk> chunk;
  while (true) {
    std::size_t count = 0;
    const int error =
        errnoOf([&] { return ::read(file_.get(), chunk.data(), chunk.size()); }, &count);
    if (error != 0) return error;
    if (count == 0) break;
    text.append(chunk.data(), count);
  }
  table_ = parseMountTable(text);
  ++readings_;
  return 0;
}

}  // namespace paddock
