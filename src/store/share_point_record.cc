#include "store/share_point_record.h"

#include "base/text.h"
#include "exports/nfs_export_record.h"
#include "platform/directory_values.h"
#include "protocol/keys.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

constexpr std::size_t kUsualProperties = 10;
constexpr const char* kExportPathKey = "path";

// How a property of each kind is read from and written to the two forms.
struct TextKind {
  static std::optional<std::string> fromValue(const Value& value) {
    const std::string* text = value.string();
    return text != nullptr ? std::optional(*text) : std::nullopt;
  }
  static std::optional<std::string> fromAttribute(const std::string& text) { return text; }
  static std::string toAttribute(const std::string& text) { return text; }
};

struct FlagKind {
  static std::optional<bool> fromValue(const Value& value) { return readBoolean(&value); }
  static std::optional<bool> fromAttribute(const std::string& text) { return readBoolean(text); }
  static std::string toAttribute(bool flag) { return flag ? "1" : "0"; }
};

struct NumberKind {
  static std::optional<std::int64_t> fromValue(const Value& value) { return readInteger(&value); }
  static std::optional<std::int64_t> fromAttribute(const std::string& text) {
    return parseInteger(text);
  }
  static std::string toAttribute(std::int64_t number) { return std::to_string(number); }
};

std::shared_ptr<NFSExportRecord> exportFromSettings(const Dictionary& settings,
                                                    const std::optional<std::string>& folder) {
  if (settings.contains(kExportPathKey) || !folder) {
    return NFSExportRecord::recordWithDictionary(settings);
  }
  Dictionary withPath = settings;
  withPath.set(kExportPathKey, *folder);
  return NFSExportRecord::recordWithDictionary(withPath);
}

}  // namespace

// Every property with its key and its directory attribute, by kind.
struct SharePointRecord::Properties {
  template <typename Visitor>
  static void visit(Visitor visitor) {
    using Record = SharePointRecord;
    static constexpr Property<std::string> texts[] = {
        {"path", schema::kDirectoryPath, &Record::path_},
        {"name", schema::kRecordName, &Record::name_},
        {protocol::kNameOverVSP, schema::kVspName, &Record::nameOverVSP_},
        {protocol::kNameOverSMB, schema::kSmbName, &Record::nameOverSMB_},
        {protocol::kNameOverFTP, schema::kFtpName, &Record::nameOverFTP_},
        {protocol::kBackstowBackupUUID, schema::kBackstowBackupUuid, &Record::backstowBackupUUID_},
        {protocol::kAutomountMountPath, schema::kStaticMountPath, &Record::automountMountPath_},
        {protocol::kAutomountDSPath, schema::kAutomountDsPath, &Record::automountDSPath_},
        {protocol::kMountedOnPath, nullptr, &Record::mountedOnPath_},
    };
    static constexpr Property<bool> flags[] = {
        {protocol::kIsSharedOverVSP, schema::kVspShared, &Record::isSharedOverVSP_},
        {protocol::kIsBackstowBackup, schema::kBackstowBackup, &Record::isBackstowBackup_},
        {protocol::kIsAutomounted, schema::kIsAutomounted, &Record::isAutomounted_},
        {protocol::kIsIndexingEnabled, nullptr, &Record::isIndexingEnabled_},
        {protocol::kIsDeleted, nullptr, &Record::isDeleted_},
    };
    static constexpr Property<std::int64_t> numbers[] = {
        {protocol::kAutomountFileSystemType, schema::kAutomountFileSystem,
         &Record::automountFileSystemType_},
    };
    for (const auto& property : texts) visitor(property, TextKind{});
    for (const auto& property : flags) visitor(property, FlagKind{});
    for (const auto& property : numbers) visitor(property, NumberKind{});
  }
};

SharePointRecord SharePointRecord::record() { return {}; }

SharePointRecord SharePointRecord::recordWithDSDictionary(const Dictionary& attributes) {
  SharePointRecord record;
  Properties::visit([&](const auto& property, auto kind) {
    if (property.attribute == nullptr) return;
    if (const std::string* text = firstValue(attributes, property.attribute)) {
      record.*property.member = kind.fromAttribute(*text);
    }
  });
  return record;
}

SharePointRecord SharePointRecord::recordWithDictionary(const Dictionary& settings) {
  SharePointRecord record;
  record.addAttributesFromDictionary(settings);
  return record;
}

Dictionary SharePointRecord::dictionary() const {
  Dictionary form;
  form.reserve(kUsualProperties);
  Properties::visit([&](const auto& property, auto) {
    if (const auto& value = this->*property.member) form.set(property.key, *value);
  });
  if (nfsExportRecord_ != nullptr)
    form.set(protocol::kNfsExportRecord, nfsExportRecord_->dictionary());
  return form;
}

std::string SharePointRecord::description() const {
  std::string text = "share point";
  if (name_ && !name_->empty()) text += " " + *name_;
  if (path_) text += " for path " + *path_;
  return text;
}

Dictionary SharePointRecord::dsDictionary() const {
  Dictionary form;
  Properties::visit([&](const auto& property, auto kind) {
    if (property.attribute == nullptr) return;
    if (const auto& value = this->*property.member) {
      form.set(property.attribute, kind.toAttribute(*value));
    }
  });
  return form;
}

void SharePointRecord::addAttributesFromDictionary(const Dictionary& settings) {
  Properties::visit([&](const auto& property, auto kind) {
    const Value* value = settings.find(property.key);
    if (value == nullptr) return;
    if (auto read = kind.fromValue(*value)) this->*property.member = std::move(read);
  });
  if (const Dictionary* exportSettings = settings.dictionary(protocol::kNfsExportRecord)) {
    nfsExportRecord_ = exportFromSettings(*exportSettings, path_);
  }
}

}  // namespace paddock
