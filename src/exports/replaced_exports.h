// Exports files that were overwritten although another process had changed or removed them.
//
// Such a file is kept beside the exports file as FILE.replaced-YYYYMMDDTHHMMSSZ, its own owner,
// group and mode included; where that name is taken, the next free second is used. The last ten are
// retained.
#pragma once

#include <string>

namespace paddock {

class ReplacedFile;

// Keeps the file that was replaced by one of the text `written` at `path`, unless its contents are
// the known ones and no process can change it any more. Logs that, with each line that was lost and
// each that was restored. A file that cannot be kept is logged, never thrown.
void keepIfOthersChangedIt(ReplacedFile& gaveWay, const std::string& path, const std::string& known,
                           const std::string& written);

// Warns of files left by an interrupted write of the one at `path`, as by a power failure: one of
// them may be the replaced file that was not restored.
void logLeftFiles(const std::string& path);

// Logs, at error level, that the file of the text `known` was gone when one of the text `written`
// was created at `path`, and which of its lines were restored.
void logMadeAnew(const std::string& path, const std::string& known, const std::string& written);

}  // namespace paddock
