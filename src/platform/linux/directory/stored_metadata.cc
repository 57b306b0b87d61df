#include "platform/linux/directory/stored_metadata.h"

namespace paddock {

StoredMetadata::StoredMetadata(SqliteConnection& connection) : StoredMetadata(read(connection)) {}

StoredMetadata::StoredMetadata(Attributes attributes)
    : attributes_(std::move(attributes)), paths_(pathsOf(attributes_)) {}

const Dictionary* StoredMetadata::attributes(const std::string& path) const {
  const auto found = attributes_.find(path);
  return found != attributes_.end() ? &found->second : nullptr;
}

StoredMetadata::Attributes StoredMetadata::read(SqliteConnection& connection) {
  // A store without attributes has one row, whose name is NULL. A manually written value that is no
  // object of texts is ignored.
  SqliteStatement rows = connection.statement(
      "SELECT s.path, a.key, a.value FROM stores s LEFT JOIN "
      "json_each(CASE WHEN json_valid(s.attributes) THEN s.attributes ELSE '{}' END) a "
      "ON a.type = 'text' AND typeof(a.key) = 'text'");
  Attributes all;
  while (rows.step()) {
    Dictionary& attributes = all[std::string(rows.text(0))];
    if (const auto name = rows.text(1); !name.empty())
      attributes.set(std::string(name), std::string(rows.text(2)));
  }
  return all;
}

std::vector<std::string> StoredMetadata::pathsOf(const Attributes& attributes) {
  std::vector<std::string> paths;
  paths.reserve(attributes.size());
  for (const auto& store : attributes) paths.push_back(store.first);
  return paths;
}

namespace {

constexpr std::int64_t kApplicationId = 0x50644D73;  // "PdMs"

constexpr const char* kVersion1 = R"sql(
-- attributes: a JSON object of texts.
CREATE TABLE stores(
  path TEXT PRIMARY KEY NOT NULL,
  attributes TEXT NOT NULL
) WITHOUT ROWID;
)sql";

}  // namespace

const SqliteFormat& metadataStoreFormat() {
  static const SqliteFormat format{"metadata store database", kApplicationId, {kVersion1}};
  return format;
}

}  // namespace paddock
