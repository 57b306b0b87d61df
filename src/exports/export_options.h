// The options that exportfs(8) knows.
#pragma once

#include <string_view>

namespace paddock {

// Whether `option` is an option of exports(5) with a value of the kind that it takes. An option
// that exportfs does not know makes it stop reading the exports file there, so that every export
// behind it is lost: none is written. Known are the options of nfs-utils 2.6.
bool isExportOption(std::string_view option);

}  // namespace paddock
