#include "store/exception_text.h"

#include <exception>

#include "platform/directory.h"

namespace paddock {

std::string describe_current_exception() {
  try {
    throw;
  } catch (const DirectoryError& error) {
    if (const auto status = error.status()) return std::to_string(*status);
    return error.what();
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an unknown exception";
  }
}

std::string reason_of_current_exception() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an unknown exception";
  }
}

}  // namespace paddock
