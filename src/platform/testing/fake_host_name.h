// A host name that a test sets.
#pragma once

#include <utility>

#include "platform/host_name.h"

namespace paddock {

class FakeHostName : public HostName {
 public:
  int gethostname(std::string& name) override {
    name = error_ == 0 ? name_ : std::string();
    return error_;
  }

  void setName(std::string name) { name_ = std::move(name); }
  // 0 for none.
  void setError(int error) { error_ = error; }

 private:
  std::string name_ = "server.example";
  int error_ = 0;
};

}  // namespace paddock
