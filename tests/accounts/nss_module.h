// How a test steers the source that nss_module.cc is.
#pragma once

namespace paddock {

// It knows the user and the group "known" of the id 7000, and "large" of 7001, whose entry wants a
// buffer of some size.
struct NssModuleControl {
  int questions = 0;
  bool isUnavailable = false;  // it cannot be asked
};

extern "C" NssModuleControl* paddocktestControl();
using PaddocktestControl = NssModuleControl*();

}  // namespace paddock
