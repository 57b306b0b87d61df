#include "platform/linux/directory/metadata_store_schema.h"

namespace paddock {

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
