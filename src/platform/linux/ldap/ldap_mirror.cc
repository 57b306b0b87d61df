#include "platform/linux/ldap/ldap_mirror.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>

#include "platform/directory.h"

namespace paddock {

namespace {

constexpr std::size_t kLongest = 1024;

// Coarser than what caseIgnoreMatch takes for equal (RFC 4518): compatibility forms, letter case,
// ignorable characters and blanks do not count. Empty: not to be shown.
std::string normalForm(const std::string& value) {
  utf8proc_uint8_t* mapped = nullptr;
  constexpr auto kOptions = static_cast<utf8proc_option_t>(
      UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_COMPAT | UTF8PROC_CASEFOLD | UTF8PROC_IGNORE |
      UTF8PROC_STRIPCC | UTF8PROC_STRIPMARK);
  const utf8proc_ssize_t size =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(value.data()),
                   static_cast<utf8proc_ssize_t>(value.size()), &mapped, kOptions);
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(mapped, &std::free);
  if (size < 0) return {};
  std::string form;
  for (utf8proc_ssize_t at = 0; at < size; ++at)
    if (mapped[at] != ' ') form += static_cast<char>(mapped[at]);
  return form;
}

const std::vector<LdapMirror> kOfAll{{schema::kRecordName, "cn"}};
const std::vector<LdapMirror> kOfSharePoints{
    {schema::kRecordName, "cn"},
    {"dsAttrTypeNative:directory_path", "paddockDirectoryPath"},
    {"dsAttrTypeNative:vsp_name", "paddockVSPName"},
    {"dsAttrTypeNative:smb_name", "paddockSMBName"},
    {"dsAttrTypeNative:ftp_name", "paddockFTPName"}};
const std::vector<LdapMirror> kOfMounts{{schema::kRecordName, "cn"},
                                        {"dsAttrTypeStandard:VFSLinkDir", "paddockVFSLinkDir"},
                                        {"dsAttrTypeStandard:VFSType", "paddockVFSType"},
                                        {"dsAttrTypeStandard:VFSOpts", "paddockVFSOpts"}};

bool isSharePoint(std::string_view type) { return type == "dsRecTypeStandard:SharePoints"; }
bool isMount(std::string_view type) { return type == "dsRecTypeStandard:Mounts"; }

}  // namespace

const std::vector<LdapMirror>& mirrorsOf(std::string_view type) {
  if (isSharePoint(type)) return kOfSharePoints;
  return isMount(type) ? kOfMounts : kOfAll;
}

std::string_view mirrorClassOf(std::string_view type) {
  if (isSharePoint(type)) return "paddockSharePoint";
  return isMount(type) ? "paddockMount" : "";
}

std::vector<std::string> mirrorAttributes() {
  std::vector<std::string> names{"cn"};
  for (const auto* mirrors : {&kOfSharePoints, &kOfMounts})
    for (const LdapMirror& mirror : *mirrors)
      if (mirror.shown != "cn") names.emplace_back(mirror.shown);
  return names;
}

std::vector<std::string> shownValues(const std::vector<std::string>& values) {
  std::vector<std::string> shown;
  std::set<std::string> forms;
  for (const std::string& value : values) {
    if (value.size() > kLongest) continue;
    std::string form = normalForm(value);
    if (!form.empty() && forms.insert(std::move(form)).second) shown.push_back(value);
  }
  return shown;
}

bool isShown(const std::vector<std::string>& values, const std::vector<std::string>& shown) {
  std::vector<std::string> expected = shownValues(values);
  std::vector<std::string> found = shown;
  std::sort(expected.begin(), expected.end());
  std::sort(found.begin(), found.end());
  return expected == found;
}

}  // namespace paddock
