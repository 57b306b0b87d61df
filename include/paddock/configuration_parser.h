// The base of parsers of line-oriented configuration files.
#pragma once

#include <string>

namespace paddock {

class ConfigurationParser {
 public:
  virtual ~ConfigurationParser() = default;

  // The file's path, as it was given.
  const std::string& file() const { return file_; }

  // Reads the file again; false when it cannot be read.
  virtual bool readFile() = 0;
  // Writes the file; true when the write succeeded.
  virtual bool writeFile() = 0;

 protected:
  ConfigurationParser() = default;
  explicit ConfigurationParser(std::string path) : file_(std::move(path)) {}

  ConfigurationParser(const ConfigurationParser&) = default;
  ConfigurationParser& operator=(const ConfigurationParser&) = default;

 private:
  std::string file_;
};

}  // namespace paddock
