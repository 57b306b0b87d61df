// The DirectoryError that a call throws.
#pragma once

#include <string>

#include "platform/directory.h"

namespace paddock {

// The status of the DirectoryError that `work` throws; 0 when it throws nothing.
template <typename Work>
Status raised(Work&& work) {
  try {
    work();
  } catch (const DirectoryError& error) {
    return error.status().value_or(-1);
  }
  return 0;
}

// The text of the DirectoryError that `work` throws; empty when it throws nothing.
template <typename Work>
std::string textRaised(Work&& work) {
  try {
    work();
  } catch (const DirectoryError& error) {
    return error.what();
  }
  return {};
}

}  // namespace paddock
