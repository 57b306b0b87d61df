// The process-wide parser of the exports file.
#pragma once

#include <string>

#include "base/status.h"
#include "exports/nfs_export_parser.h"
#include "exports/nfs_export_record.h"

namespace paddock {

// For tests alone.

// Destroys the shared exports parser: the next use creates a new one, on the services of that time.
void resetSharedExportsParserForTesting();

// The parser of the services' `exportsPath`, made on the first call (which reads the file) and kept
// for the lifetime of the process. Callers hold the module's request lock.
NFSExportParser& shared_exports_parser();

// Brings the shared parser up to date at the start of a request and between requests: the file is
// reread when it is not what was last read or written, and after a failed write: an export that
// could not be added is discarded thereby, one that could not be removed is not.
void refresh_exports();

// Between requests: logs why the file could not be read or written, and that it was removed, once
// for as long as the condition lasts.
void log_new_exports_fault();

// Sets `record` to the shared parser's export of exactly this path, its own object, or to null.
// Always 0.
Status get_export_record(const std::string& path, NFSExportRecordPtr& record);

// Removes the export with the record's identifier from the shared parser; the file is not
// written. Always 0; a null record removes nothing.
Status delete_export_record(const NFSExportRecordPtr& record);

}  // namespace paddock
