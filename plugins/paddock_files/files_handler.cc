#include "paddock_files/files_handler.h"

#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/status.h"
#include "base/system_call.h"
#include "platform/linux/file_mode.h"
#include "platform/linux/file_object.h"

namespace paddock {

namespace {

constexpr mode_t kPermissionBits = 0777;
constexpr unsigned kSpecialBitsShift = 9;
constexpr int kOctal = 8;
constexpr std::size_t kDigits = 4;

Dictionary replyOf(int error, Dictionary reply = {}) {
  reply.set("status", error);
  if (error != 0) reply.set("error", sharing_error_string(error));
  return reply;
}

std::string octalDigits(mode_t mode) {
  std::string digits(kDigits, '0');
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    *digit = static_cast<char>('0' + mode % kOctal);
    mode /= kOctal;
  }
  return digits;
}

int openNamed(const Dictionary& request, FileDescriptor& object, struct stat& status) {
  const std::string* path = request.string("path");
  if (path == nullptr || !path->starts_with('/')) return EINVAL;
  if (const int error = openObject(*path, object); error != 0) return error;
  return errnoOf([&] { return ::fstat(object.get(), &status); });
}

Dictionary describe(const FileDescriptor& object) {
  struct stat status {};
  int error = errnoOf([&] { return ::fstat(object.get(), &status); });
  mode_t mode = 0;
  if (error == 0) error = readMode(linuxExtendedAttributes(), object.get(), status.st_mode, mode);
  if (error != 0) return replyOf(error);
  return replyOf(0, {{"mode", octalDigits(mode)}, {"uid", status.st_uid}, {"gid", status.st_gid}});
}

Dictionary getMode(const Dictionary& request) {
  FileDescriptor object;
  struct stat status {};
  const int error = openNamed(request, object, status);
  return error != 0 ? replyOf(error) : describe(object);
}

std::optional<mode_t> bitsIn(const Dictionary& request) {
  const std::string* digit = request.string("bits");
  if (digit == nullptr || digit->size() != 1 || digit->front() < '0' || digit->front() > '7') {
    return std::nullopt;
  }
  return static_cast<mode_t>(digit->front() - '0') << kSpecialBitsShift;
}

Dictionary setModeBits(const Dictionary& request) {
  const std::optional<mode_t> bits = bitsIn(request);
  if (!bits) return replyOf(EINVAL);
  FileDescriptor object;
  struct stat status {};
  int error = openNamed(request, object, status);
  if (error == 0 && !S_ISDIR(status.st_mode)) error = ENOTDIR;
  // With a POSIX ACL the group's part is its mask, which so stays as it is.
  if (error == 0) {
    error = changeObjectMode(object.get(), (status.st_mode & kPermissionBits) | *bits);
  }
  return error != 0 ? replyOf(error) : describe(object);
}

}  // namespace

std::vector<PluginRequestHandler::Operation> FilesRequestHandler::operations() const {
  return {{"getMode", false}, {"setModeBits", true}};
}

Dictionary FilesRequestHandler::performOperation(std::string_view name, const Dictionary& request) {
  if (name == "getMode") return getMode(request);
  if (name != "setModeBits") throw std::invalid_argument("no operation " + std::string(name));
  const std::scoped_lock lock(changing_);
  return setModeBits(request);
}

}  // namespace paddock
