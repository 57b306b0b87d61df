// Doubles of the services of machine_information.h: the clock, the host's name, UUIDs and browser
// information; and wrappers of all but the clock, through which tests let calls fail and see them.
#pragma once

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include "platform/machine_information.h"
#include "platform/testing/call_rules.h"

namespace paddock {

// A clock that advances only on request.
class FakeClock : public Clock {
 public:
  std::chrono::system_clock::time_point now() override { return now_; }
  std::chrono::steady_clock::time_point monotonicNow() override { return monotonicNow_; }

  void advance(std::chrono::nanoseconds duration) {
    now_ += std::chrono::duration_cast<std::chrono::system_clock::duration>(duration);
    monotonicNow_ += duration;
  }
  // Sets the time of day alone, as an administrator does.
  void setNow(std::chrono::system_clock::time_point now) { now_ = now; }

 private:
  std::chrono::system_clock::time_point now_{std::chrono::seconds(1'700'000'000)};
  std::chrono::steady_clock::time_point monotonicNow_{std::chrono::seconds(1'000)};
};

// A host name that a test sets.
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

// UUIDs of a counted row: well-formed version 4, the last eight bytes counting up from 1.
class FakeUuidSource : public UuidSource {
 public:
  Guid newUuid() override {
    ++count_;
    Guid uuid;
    uuid.bytes[6] = 0x40;
    uuid.bytes[8] = 0x80;
    for (unsigned at = 0; at < 7; ++at) {
      uuid.bytes[15 - at] = static_cast<std::uint8_t>(count_ >> (8U * at));
    }
    return uuid;
  }

  std::uint64_t count() const { return count_; }

 private:
  std::uint64_t count_ = 0;
};

// Browser information of real files, kept in memory.
class FakeBrowserInformation : public BrowserInformationService {
 public:
  int read(const std::string& path, BrowserInformation& information) override {
    information = {};
    if (const int error = pathError(path); error != 0) return error;
    const auto kept = kept_.find(path);
    if (kept != kept_.end()) information = kept->second;
    return 0;
  }
  int write(const std::string& path, const BrowserInformation& information) override {
    if (const int error = pathError(path); error != 0) return error;
    const auto status = std::filesystem::symlink_status(path);
    if (!std::filesystem::is_regular_file(status) && !std::filesystem::is_directory(status)) {
      return EPERM;
    }
    kept_[path] = information;
    return 0;
  }

  // What was written to the path; null when nothing was.
  const BrowserInformation* find(const std::string& path) const {
    const auto kept = kept_.find(path);
    return kept == kept_.end() ? nullptr : &kept->second;
  }

 private:
  static int pathError(const std::string& path) {
    if (path.find('\0') != std::string::npos) return EINVAL;
    return std::filesystem::exists(std::filesystem::symlink_status(path)) ? 0 : ENOENT;
  }

  std::map<std::string, BrowserInformation> kept_;
};

// The host's name. A failure is the errno, and an empty name; traces leave it out.
class ForwardingHostName final : public Forwarder<HostName> {
 public:
  using Forwarder::Forwarder;
  int gethostname(std::string& name) override {
    name.clear();
    const int error = ask("hostName.gethostname");
    return error != 0 ? error : wrapped().gethostname(name);
  }
};

// UUIDs, whose source has no way to fail; it can raise what a rule of a trace throws. Operation:
// newUuid.
class ForwardingUuidSource final : public Forwarder<UuidSource> {
 public:
  using Forwarder::Forwarder;
  Guid newUuid() override {
    ask("", {"newUuid", "", ""});
    return wrapped().newUuid();
  }
};

// Browser information. A failure is the errno, zeros read and nothing written; traces leave it out.
class ForwardingBrowserInformation final : public Forwarder<BrowserInformationService> {
 public:
  using Forwarder::Forwarder;
  int read(const std::string& path, BrowserInformation& information) override {
    information = {};
    const int error = ask("browserInformation.read");
    return error != 0 ? error : wrapped().read(path, information);
  }
  int write(const std::string& path, const BrowserInformation& information) override {
    const int error = ask("browserInformation.write");
    return error != 0 ? error : wrapped().write(path, information);
  }
};

}  // namespace paddock
