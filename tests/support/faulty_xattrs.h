// Extended attributes whose Nth change fails.
#pragma once

#include <cerrno>
#include <string>
#include <string_view>

#include "platform/linux/files/file_object.h"

namespace paddock {

class FaultyXattrs final : public ExtendedAttributes {
 public:
  // Of the changes from now on, the one of this number (from 1) fails with `error`; 0: none does.
  void failChange(int number, int error) {
    failing_ = number;
    error_ = error;
    changes_ = 0;
    isLasting_ = false;
  }
  // All that follow fail, too, including those that undo changes.
  void failChangesFrom(int number, int error) {
    failChange(number, error);
    isLasting_ = true;
  }
  // Changes that were tried since then.
  int changes() const { return changes_; }
  // Every call for the attribute fails with EOPNOTSUPP from now on.
  void takeNo(const std::string& name) { unsupported_ = name; }

  int get(int object, const std::string& name, std::string& value) const override {
    value.clear();
    return name == unsupported_ ? EOPNOTSUPP : linuxExtendedAttributes().get(object, name, value);
  }
  int set(int object, const std::string& name, std::string_view value) const override {
    if (const int error = errorOfChange(name); error != 0) return error;
    return linuxExtendedAttributes().set(object, name, value);
  }
  int remove(int object, const std::string& name) const override {
    if (const int error = errorOfChange(name); error != 0) return error;
    return linuxExtendedAttributes().remove(object, name);
  }

 private:
  int errorOfChange(const std::string& name) const {
    if (name == unsupported_) return EOPNOTSUPP;
    ++changes_;
    return changes_ == failing_ || (isLasting_ && changes_ > failing_) ? error_ : 0;
  }

  int failing_ = 0;
  int error_ = 0;
  bool isLasting_ = false;
  mutable int changes_ = 0;
  std::string unsupported_;
};

}  // namespace paddock
