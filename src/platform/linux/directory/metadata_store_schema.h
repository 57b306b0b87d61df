// The file format of the metadata stores: docs/formats/metadata-stores.md.
#pragma once

#include "platform/linux/database/sqlite_format.h"

namespace paddock {

const SqliteFormat& metadataStoreFormat();

}  // namespace paddock
