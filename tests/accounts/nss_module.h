// Controls the name service source nss_module.cc from a test.
#pragma once

namespace paddock {

// It knows the user and the group "known" of the id 7000, and "large" of 7001, whose entry wants a
// buffer of some size.
struct NssModuleControl {
  int questions = 0;
  bool isUnavailable = false;  // it is unavailable
};

extern "C" NssModuleControl* paddocktestControl();
using PaddocktestControl = NssModuleControl*();

}  // namespace paddock
