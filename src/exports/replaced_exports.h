// Exports files that were written over although somebody had changed or removed them.
//
// Such a file is kept beside the exports file as FILE.replaced-YYYYMMDDTHHMMSSZ, its own owner,
// group and mode included; where that name is taken, the next second that is free stands in it. The
// last ten of them stay.
#pragma once

#include <string>

namespace paddock {

class ReplacedFile;

// Keeps the file that gave way to one of the text `written` at `path`, unless it is what was known
// of it and nobody can change it any more. Says so in the log, with each line that was lost and
// each that is there again. Never throws for a file that cannot be kept: the log has it.
void keepIfOthersChangedIt(ReplacedFile& gaveWay, const std::string& path, const std::string& known,
                           const std::string& written);

// Warns of the files that a write of the one at `path` has left that was broken off, as by a loss
// of power: one of them may have given way to the new file, and not been put back.
void logLeftFiles(const std::string& path);

// Says in the log, at error level, that the file of the text `known` was gone when one of the text
// `written` was made at `path`, and which of its lines are there again.
void logMadeAnew(const std::string& path, const std::string& known, const std::string& written);

}  // namespace paddock
