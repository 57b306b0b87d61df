// Paths of shared folders, as the daemon is asked about them.
#pragma once

#include <string>
#include <string_view>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

// The absolute form of `path`, seen from `currentFolder`: no empty, "." or ".." parts, no slash at
// the end. Links are not followed, so ".." takes away the part before it. Throws Failure (usage)
// for an empty path and one that is not UTF-8.
std::string normalisePath(std::string_view path, std::string_view currentFolder);

// The same from the process's current folder, which is asked for only when `path` needs it.
std::string absolutePath(std::string_view path);

// The last part of a normalised path; empty for "/".
std::string lastComponent(const std::string& path);

// `failed`, extended, where the path does not exist, by that fact and by the closest names beside
// it.
Failure explainMissing(const Failure& failed, const std::string& path);

// Throws Failure unless `path` names a folder, or a link to one.
void requireFolder(const std::string& path);

}  // namespace paddock::keelhouse
