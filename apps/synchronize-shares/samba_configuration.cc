#include "synchronize-shares/samba_configuration.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "base/system_call.h"
#include "platform/linux/process/bounded_program.h"
#include "samba/samba_text.h"

namespace paddock::synchronizer {

namespace {

constexpr std::string_view kHeading =
    "# The shares of Paddock, for smb.conf to include. Written by synchronize-shares(8), which\n"
    "# replaces this file: changes belong into the share points (keelhouse share set).\n";
// Lines of smb.conf that follow the line with "include" would belong to the last share otherwise,
// one like "guest ok = yes" too.
constexpr std::string_view kEnd = "\n[global]\n";
// Samba's default attribute; it finds nothing there when it is configured explicitly.
constexpr std::string_view kUsualAttribute = "security.NTACL";

// Where nothing is passed on, the mode decides who may use a file without a list, and what a client
// makes has the mode of its folder. Without the last line, Samba makes that open to everybody.
constexpr std::string_view kByModes =
    "    acl_xattr:ignore system acls = yes\n"
    "    inherit permissions = yes\n";
// Where entries are passed on, the kernel's ACL decides who may use a file without a list, which
// local programs and NFS clients have made, and has what a client sets at once. A folder without a
// list gets one from Samba then, made of the masks; in what a client makes there the maker's group
// is no safe guess, and others are none. The file attributes stay out of the mode.
constexpr std::string_view kByLists =
    "    acl_xattr:ignore system acls = no\n"
    "    inherit permissions = yes\n"
    "    create mask = 0700\n"
    "    directory mask = 0700\n"
    "    acl map full control = no\n"
    "    map archive = no\n"
    "    map readonly = no\n"
    "    store dos attributes = yes\n";

// What every section has.
std::string commonLines(const std::string& attribute) {
  std::string lines =
      "    read only = no\n"
      "    vfs objects = acl_xattr\n";
  if (attribute != kUsualAttribute)
    lines += "    acl_xattr:security_acl_name = " + attribute + "\n";
  return lines;
}

void appendSection(std::string& text, const SharePoint& share, std::string_view common) {
  text.append("\n[").append(share.nameOverSMB).append("]\n");
  text.append("    path = ").append(share.path).append("\n");
  if (samba::faultOfValue(share.recordName).empty())
    text.append("    comment = ").append(share.recordName).append("\n");
  text.append(common).append(share.passesListsOn ? kByLists : kByModes);
  // Behind the others, so that they count.
  text.append(samba::sectionLines(share.smb.options));
}

}  // namespace

std::string includeFileText(const std::vector<const SharePoint*>& shares,
                            const std::string& attribute) {
  if (const std::string_view fault = samba::faultOfValue(attribute); !fault.empty())
    throw std::runtime_error("the attribute of the access-control lists, \"" + attribute + "\", " +
                             std::string(fault) + ", which Samba's configuration cannot carry");
  const std::string common = commonLines(attribute);
  std::string text(kHeading);
  for (const SharePoint* share : shares) appendSection(text, *share, common);
  return text.append(kEnd);
}

IncludeFile::IncludeFile(TextFiles& files, const std::string& root)
    : files_(files), folder_(root + "/etc/samba"), path_(folder_ + "/paddock-shares.conf") {}

std::string IncludeFile::text() const {
  std::string present;
  const int unreadable = files_.read(path_, present);
  // A file too large to be read was not written by this program.
  if (unreadable != 0 && unreadable != ENOENT && unreadable != EFBIG)
    throw systemError(unreadable, "cannot read", path_);
  return unreadable == 0 ? present : std::string();
}

bool IncludeFile::isUpToDate(const std::string& text) const { return this->text() == text; }

void IncludeFile::replace(const std::string& text) {
  std::filesystem::create_directories(folder_);
  if (const int error = files_.replace(path_, text); error != 0)
    throw systemError(error, "cannot write", path_);
}

namespace {

constexpr std::size_t kKeptOutput = 4096;
// What smbcontrol says when there is no smbd.
constexpr std::string_view kNotRunning = "Can't find pid for destination";

std::string control(const std::string& program, const std::vector<std::string>& words,
                    std::chrono::milliseconds patience) {
  const BoundedOutcome ended = runBoundedProgram(program, words, patience, kKeptOutput);
  if (ended.status == ENOENT) return {};
  if (ended.status == ETIMEDOUT) return "smbd is not told, " + program + " takes too long";
  if (ended.status != 0)
    return systemError(ended.status, "smbd is not told, cannot start", program).what();
  const std::string output = ended.output + ended.errorOutput;
  if (ended.exitStatus == 0 || output.find(kNotRunning) != std::string::npos) return {};
  return "smbd is not told, " + program + " ended with status " + std::to_string(ended.exitStatus) +
         ": " + output;
}

}  // namespace

std::string tellSmbServer(const std::string& program, std::chrono::milliseconds patience) {
  return control(program, {"smbd", "reload-config"}, patience);
}

std::string endConnections(const std::string& program, const std::string& share,
                           std::chrono::milliseconds patience) {
  return control(program, {"smbd", "close-share", share}, patience);
}

}  // namespace paddock::synchronizer
