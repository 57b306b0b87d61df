// A text that is overwritten when it is no longer needed.
#pragma once

#include <cstring>
#include <string>

namespace paddock {

class Secret {
 public:
  Secret() = default;
  explicit Secret(std::string text) : text_(std::move(text)) {}
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { wipe(); }

  const std::string& text() const { return text_; }
  void set(const std::string& text) {
    wipe();
    text_ = text;
  }

 private:
  void wipe() { ::explicit_bzero(text_.data(), text_.size()); }

  std::string text_;
};

}  // namespace paddock
