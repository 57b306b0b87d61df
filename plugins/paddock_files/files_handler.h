// The plug-in paddock_files: what the settings of a folder have no place for. Those carry a mode of
// three octal digits; here are all four, and ids that have no name. And they carry the entries of
// an ACL; here is whether the list is complete, so that nothing falls to the mode.
//
// Operations.
//
//   getMode      {"path"}         -> "mode", "uid", "gid", "status"
//       "mode": four octal digits, the last three as owner, owning group and others have them
//   setModeBits  {"path", "bits"} -> "mode", "uid", "gid", "status"
//       "bits": one octal digit: 4 set-user-id, 2 set-group-id, 1 sticky, on a folder; the rest of
//       the mode stays. ENOTDIR for anything else: a program that runs with the rights of its owner
//       is not made from afar. A list of the folder is brought up to date.
//
//   getList      {"path"}         -> "present", "complete", "status"
//       "present" is whether there is a list, which may be one without entries; "complete" whether
//       it leaves nothing to the mode. EINVAL for a list that does not decode.
//   makeComplete {"path", "empty"} -> the same
//       Makes the list complete, or one without entries where there is none. With "empty" true its
//       entries are removed: it grants no access. Neither grants new access. Concurrent changes
//       of the list, the mode, owner or group are preserved, and count; EAGAIN, and nothing is
//       changed, where it comes too often, and where entries came that "empty" would remove.
//
// "status" is 0 or an errno, with its text under "error": EINVAL for a key that is missing, of
// another type or no such digit, ENOENT where nothing is. Links are followed.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "paddock/plugin_request_handler.h"
#include "platform/linux/files/file_object.h"

namespace paddock {

class FilesRequestHandler final : public PluginRequestHandler {
 public:
  // Lists are written through `attributes`, which must outlive this object.
  explicit FilesRequestHandler(const ExtendedAttributes& attributes = linuxExtendedAttributes());
  FilesRequestHandler(const FilesRequestHandler&) = delete;
  FilesRequestHandler& operator=(const FilesRequestHandler&) = delete;
  ~FilesRequestHandler() override;

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  struct Lists;

  const std::unique_ptr<Lists> lists_;
  // Reading and writing a mode or a list is not atomic.
  Mutex changing_;
};

}  // namespace paddock
