#include "platform/linux/quotas/accounting_quota_control.h"

#include <array>
#include <cerrno>
#include <set>
#include <string_view>

namespace paddock {

namespace {

using Lines = std::set<std::string>;

constexpr std::array<const char*, 2> kTypes = {"user", "group"};

// Blanks, control characters and "%" as %XX, so that every path is one line.
std::string escaped(const std::string& path) {
  static constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte > ' ' && byte != 0x7FU && byte != '%') {
      text += character;
      continue;
    }
    text += '%';
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

std::string lineOf(std::uint32_t type, const std::string& mountPoint) {
  return std::string(kTypes[type]) + " " + escaped(mountPoint);
}

Lines linesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (end > 0) lines.emplace(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string textOf(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace

int AccountingQuotaControl::quotactl(const std::string& path, std::uint32_t commandWord,
                                     std::uint32_t /*id*/, const QuotaArgument& argument) {
  const auto request = quotaRequest(commandWord, argument);
  if (!request) return EINVAL;
  if (const int error = quotaPathError(path); error != 0) return error;
  MountedVolume volume;
  if (const int error = volumes_.statfs(path, volume); error != 0) return error;
  if (request->command == kQuotaOnCommand) {
    if (const int error = quotaFileError(*request->quotaFile); error != 0) return error;
  }
  const MutexLock lock(mutex_);
  std::string text;
  if (const int error = files_.read(statePath_, text); error != 0 && error != ENOENT) return error;
  Lines lines = linesOf(text);
  const std::string line = lineOf(request->type, volume.f_mntonname);
  const bool on = lines.contains(line);
  if (request->command == kQuotaStateCommand) {
    *request->state = on ? 1 : 0;
    return 0;
  }
  if (on == (request->command == kQuotaOnCommand)) return 0;
  if (on) {
    lines.erase(line);
  } else {
    lines.insert(line);
  }
  return files_.replace(statePath_, textOf(lines));
}

}  // namespace paddock
