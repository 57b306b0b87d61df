#include "exports/nfs_export_record.h"

#include <atomic>
#include <utility>

#include "exports/exports_entry.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

constexpr const char* kPathKey = "path";
constexpr const char* kClientsKey = "clients";
constexpr const char* kHostKey = "host";
constexpr const char* kOptionsKey = "options";
constexpr const char* kLineKey = "line";

std::atomic<std::uint64_t> gListedPathChanges{0};

Array optionValues(const std::vector<std::string>& options) {
  return {options.begin(), options.end()};
}

Array clientValues(const std::vector<NFSExportClient>& clients) {
  Array values;
  values.reserve(clients.size());
  for (const NFSExportClient& client : clients) {
    Dictionary form;
    form.reserve(2);
    form.set(kHostKey, client.host);
    form.set(kOptionsKey, optionValues(client.options));
    values.emplace_back(std::move(form));
  }
  return values;
}

// An option that is no string, and options that are no array, read as an empty option, which no
// line can hold.
std::vector<std::string> optionsOf(const Value* value) {
  if (value == nullptr) return {};
  if (value->array() == nullptr) return {std::string()};
  std::vector<std::string> options;
  for (const Value& option : *value->array()) {
    options.push_back(option.string() == nullptr ? std::string() : *option.string());
  }
  return options;
}

// A client that is no dictionary, or names no host, gets an empty host, which no line can hold.
NFSExportClient clientOf(const Value& value) {
  const Dictionary* settings = value.dictionary();
  if (settings == nullptr) return {};
  const std::string* host = settings->string(kHostKey);
  return {host == nullptr ? std::string() : *host, optionsOf(settings->find(kOptionsKey))};
}

bool isOneEntry(const std::string& line) {
  if (line.find('\n') == std::string::npos) return !line.empty();
  return exportsEntryLength(line + '\n') == line.size() + 1;
}

}  // namespace

const std::string& NFSExportRecord::noPath() {
  static const std::string kNone;
  return kNone;
}

const std::vector<NFSExportClient>& NFSExportRecord::clients() const {
  static const std::vector<NFSExportClient> kNone;
  readClients();
  return clients_ ? *clients_ : kNone;
}

std::vector<NFSExportClient> NFSExportRecord::unreadClients() const {
  auto read = readExportsLine(*line_);
  return read ? std::move(read->clients) : std::vector<NFSExportClient>();
}

void NFSExportRecord::readClients() const {
  if (hasUnreadClients()) clients_ = unreadClients();
}

void NFSExportRecord::forgetLine() {
  readClients();
  line_.reset();
}

std::uint64_t NFSExportRecord::listedPathChanges() {
  return gListedPathChanges.load(std::memory_order_relaxed);
}

NFSExportRecordPtr NFSExportRecord::recordWithNfsExportFileLine(std::string_view line) {
  auto record = std::make_shared<NFSExportRecord>();
  record->readLine(line);
  return record;
}

NFSExportRecordPtr NFSExportRecord::recordWithDictionary(const Dictionary& settings) {
  auto record = std::make_shared<NFSExportRecord>();
  record->addAttributesFromDictionary(settings);
  return record;
}

void NFSExportRecord::readLine(std::string_view line) {
  if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  line_ = line;
  if (auto path = readExportsPath(line)) replacePath(std::move(*path));
}

std::string NFSExportRecord::nfsExportFileLine() const {
  std::string text;
  appendNfsExportFileLine(text);
  return text;
}

void NFSExportRecord::appendNfsExportFileLine(std::string& text) const {
  if (!line_ && !isValid()) return;
  const std::string& line = line_ ? *line_ : writeExportsLine(exportsLine());
  if (!isOneEntry(line)) return;
  text += line;
  text += '\n';
}

void NFSExportRecord::settleLine() {
  if (line_ || !isValid()) return;
  line_ = writeExportsLine(exportsLine());
}

void NFSExportRecord::setPath(std::string path) {
  if (path_ == path) return;
  forgetLine();
  replacePath(std::move(path));
}

void NFSExportRecord::replacePath(std::string path) {
  path_ = std::move(path);
  if (listed_.value) gListedPathChanges.fetch_add(1, std::memory_order_relaxed);
}

void NFSExportRecord::setClients(std::vector<NFSExportClient> clients) {
  readClients();
  if (clients_ == clients) return;
  line_.reset();
  clients_ = std::move(clients);
}

Dictionary NFSExportRecord::dictionary() const {
  Dictionary form;
  form.reserve(3);
  if (path_) form.set(kPathKey, *path_);
  if (hasUnreadClients()) {
    // Not kept: a listing asks every record once.
    form.set(kClientsKey, clientValues(unreadClients()));
  } else if (clients_) {
    form.set(kClientsKey, clientValues(*clients_));
  }
  if (isDeleted_) form.set(protocol::kIsDeleted, *isDeleted_);
  if (isKeptLine()) form.set(kLineKey, *line_);
  return form;
}

void NFSExportRecord::addAttributesFromDictionary(const Dictionary& settings) {
  if (const std::string* path = settings.string(kPathKey)) setPath(*path);
  if (const Array* values = settings.array(kClientsKey)) {
    std::vector<NFSExportClient> clients;
    for (const Value& value : *values) clients.push_back(clientOf(value));
    setClients(std::move(clients));
  }
  if (const auto deleted = settings.boolean(protocol::kIsDeleted)) isDeleted_ = *deleted;
  const std::string* line = settings.string(kLineKey);
  if (line != nullptr && !path_ && !clients_) readLine(*line);
}

std::optional<std::string> NFSExportRecord::invalidReason() const {
  if (isKeptLine()) return "the line is no export";
  if (line_) return std::nullopt;
  return exportsLineFault(exportsLine());
}

}  // namespace paddock
