#include "keelhouse/share/share_view.h"

#include <algorithm>
#include <vector>

#include "keelhouse/core/terminal_text.h"
#include "keelhouse/share/nfs_exports.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kSmbOptions = "smb";
// Where the exports file has several for the path.
constexpr std::string_view kExportLines = "exportLines";

// The display order; others follow in the order of their names.
constexpr std::string_view kOrder[] = {"path",
                                       "name",
                                       protocol::kIsSharedOverVSP,
                                       protocol::kNameOverVSP,
                                       protocol::kNameOverSMB,
                                       kSmbOptions,
                                       protocol::kNameOverFTP,
                                       protocol::kNfsExportRecord,
                                       kExportLines,
                                       protocol::kIsAutomounted,
                                       protocol::kAutomountMountPath,
                                       protocol::kAutomountFileSystemType,
                                       protocol::kAutomountDSPath,
                                       protocol::kIsBackstowBackup,
                                       protocol::kBackstowBackupUUID};

bool isOrdered(std::string_view key) {
  for (const auto ordered : kOrder) {
    if (ordered == key) return true;
  }
  return false;
}

std::string cell(const std::string* text) {
  return text == nullptr || text->empty() ? "-" : printable(*text);
}

std::string vspCell(const Dictionary& sharePoint) {
  if (!sharePoint.boolean(protocol::kIsSharedOverVSP).value_or(false)) return "-";
  return cell(sharePoint.string(protocol::kNameOverVSP));
}

// "host(options) host", or the line itself where it could not be taken apart. Empty without export.
std::string exportText(const Dictionary* record) {
  if (record == nullptr) return {};
  if (const std::string* line = record->string("line")) return *line;
  std::string text;
  if (const Array* clients = record->array("clients")) {
    for (const Value& client : *clients) {
      if (client.dictionary() == nullptr) continue;
      text += (text.empty() ? "" : " ") + formatNfsClient(*client.dictionary());
    }
  }
  return text.empty() ? "exported" : text;
}

std::string fileSystemText(std::int64_t type) { return type == 0 ? "VSP" : "NFS"; }

// "/Network/Library over NFS by /LDAP/site". Empty for a folder that clients do not automount.
std::string automountText(const Dictionary& sharePoint) {
  if (!sharePoint.boolean(protocol::kIsAutomounted).value_or(false)) return {};
  return cell(sharePoint.string(protocol::kAutomountMountPath)) + " over " +
         fileSystemText(sharePoint.integer(protocol::kAutomountFileSystemType).value_or(0)) +
         " by " + cell(sharePoint.string(protocol::kAutomountDSPath));
}

bool isBackup(const Dictionary& sharePoint) {
  return sharePoint.boolean(protocol::kIsBackstowBackup).value_or(false);
}

std::vector<std::string> tableRow(const Dictionary& sharePoint) {
  const std::string exported = exportText(sharePoint.dictionary(protocol::kNfsExportRecord));
  return {cell(sharePoint.string("path")),
          cell(sharePoint.string("name")),
          vspCell(sharePoint),
          cell(sharePoint.string(protocol::kNameOverSMB)),
          cell(sharePoint.string(protocol::kNameOverFTP)),
          cell(&exported)};
}

// A column behind the others, unless it says nothing of any row but the first, its title.
void appendColumn(std::vector<std::vector<std::string>>& rows,
                  const std::vector<std::string>& cells) {
  if (std::all_of(cells.begin() + 1, cells.end(), [](const auto& text) { return text.empty(); })) {
    return;
  }
  for (std::size_t at = 0; at < rows.size(); ++at) {
    rows[at].push_back(cells[at].empty() ? "-" : cells[at]);
  }
}

std::string propertyText(std::string_view key, const Value& value) {
  if (key == protocol::kAutomountFileSystemType && value.integer() != nullptr) {
    return fileSystemText(*value.integer());
  }
  if (key == protocol::kNfsExportRecord) return printable(exportText(value.dictionary()));
  if (const std::string* text = value.string()) return printable(*text);
  if (const bool* boolean = value.boolean()) return *boolean ? "yes" : "no";
  return wire::writeJson(value);
}

// "smb.readOnly: yes", a line for each of the options.
std::string smbLines(const Dictionary& options) {
  std::string lines;
  for (const auto& entry : options) {
    std::vector<const Value*> values{&entry.value};
    if (const Array* array = entry.value.array()) {
      values.clear();
      for (const Value& value : *array) values.push_back(&value);
    }
    for (const Value* value : values) {
      lines += "smb." + printable(entry.key) + ": " + propertyText(entry.key, *value) + "\n";
    }
  }
  return lines;
}

void appendProperty(std::string& lines, std::string_view key, const Value* value) {
  if (value == nullptr) return;
  if (key == kSmbOptions && value->dictionary() != nullptr) {
    lines += smbLines(*value->dictionary());
    return;
  }
  if (key == kExportLines && value->array() != nullptr) {
    for (const Value& line : *value->array())
      lines += "line of /etc/exports: " + propertyText(key, line) + "\n";
    return;
  }
  lines += printable(key) + ": " + propertyText(key, *value) + "\n";
}

// What is unfinished, and how it goes; empty when nothing is.
std::string formatUnfinished(const std::vector<const Dictionary*>& sharePoints) {
  if (sharePoints.empty()) return {};
  std::vector<std::vector<std::string>> rows{{"UNFINISHED", "PATH"}};
  for (const Dictionary* sharePoint : sharePoints) {
    rows.push_back({cell(sharePoint->string("name")), cell(sharePoint->string("path"))});
  }
  return formatTable(rows) +
         "These share nothing. To remove one: keelhouse share remove --name NAME\n";
}

}  // namespace

bool isUnfinished(const Dictionary& sharePoint) {
  const std::string* path = sharePoint.string("path");
  return path == nullptr || !path->starts_with('/');
}

std::string formatShareTable(const Array& sharePoints) {
  std::vector<std::vector<std::string>> rows{{"PATH", "NAME", "VSP", "SMB", "FTP", "NFS"}};
  std::vector<const Dictionary*> listed;
  std::vector<const Dictionary*> unfinished;
  for (const Value& value : sharePoints) {
    const Dictionary* sharePoint = value.dictionary();
    if (sharePoint != nullptr)
      (isUnfinished(*sharePoint) ? unfinished : listed).push_back(sharePoint);
  }
  if (listed.empty()) return formatUnfinished(unfinished);
  for (const Dictionary* sharePoint : listed) rows.push_back(tableRow(*sharePoint));
  std::vector<std::string> automounts{"AUTOMOUNT"};
  std::vector<std::string> backups{"BACKUP"};
  std::vector<std::string> folders{"FOLDER"};
  for (const Dictionary* sharePoint : listed) {
    automounts.push_back(automountText(*sharePoint));
    backups.emplace_back(isBackup(*sharePoint) ? "yes" : "");
    const std::string* folder = sharePoint->string("folder");
    folders.push_back(folder != nullptr ? printable(*folder) : "");
  }
  appendColumn(rows, automounts);
  appendColumn(rows, backups);
  appendColumn(rows, folders);
  const std::string more = formatUnfinished(unfinished);
  return formatTable(rows) + (more.empty() ? "" : "\n" + more);
}

std::string formatSharePoint(const Dictionary& sharePoint) {
  std::string lines;
  for (const auto key : kOrder) appendProperty(lines, key, sharePoint.find(key));
  for (const auto& entry : sharePoint) {
    // Implied by the others.
    if (entry.key != protocol::kIsShared && !isOrdered(entry.key)) {
      appendProperty(lines, entry.key, &entry.value);
    }
  }
  return lines;
}

}  // namespace paddock::keelhouse
