// One configured directory server, shared by all sessions and threads: its idle connections, cached
// users and groups, and availability.
#pragma once

#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "base/timed_cache.h"
#include "platform/linux/ldap/ldap_answers.h"
#include "platform/linux/ldap/ldap_connection.h"
#include "platform/linux/ldap/ldap_error.h"
#include "platform/linux/process/linux_machine_information.h"

namespace paddock {

class LdapServer {
 public:
  explicit LdapServer(LdapOptions options) : options_(std::move(options)) {}
  LdapServer(const LdapServer&) = delete;
  LdapServer& operator=(const LdapServer&) = delete;

  const LdapOptions& options() const { return options_; }

  // A connection authenticated as the configured account only: a returned one, or a new one. It is
  // owned by the caller exclusively. Propagates exceptions of connecting and binding; EACCES also
  // when the password of the account cannot be read. What it does counts against the allowance.
  std::unique_ptr<LdapConnection> take(const std::shared_ptr<LdapAllowance>& allowance);
  // A new connection, not authenticated.
  std::unique_ptr<LdapConnection> open(const std::shared_ptr<LdapAllowance>& allowance);
  // For a connection that came from `take`; kept for the next caller when it is usable.
  void giveBack(std::unique_ptr<LdapConnection> connection);

  // What it shows to the configured account.
  LdapAnswers& answers() { return answers_; }

  // What the last change of a record has shown. A refusal may be that of the one change, or be over
  // when the server is set up anew: it counts for a while alone (`LdapOptions::refusal`), and no
  // longer when a connection broke or cannot be made.
  enum class WriteProof { none, accepted, refused };
  WriteProof writeProof();
  void setWriteProof(WriteProof proof);

  // To be called when a connection broke: closes the idle ones.
  void closeIdle();

  // To be called for every error, so that a server that timed out is not waited for again for a
  // while (`LdapOptions::silence`): until then `take` and `open` throw the same error immediately.
  void noteFailure(const LdapError& error);

 private:
  using Clock = std::chrono::steady_clock;
  struct Idle {
    std::unique_ptr<LdapConnection> connection;
    Clock::time_point since;
  };

  void forgetRefusal() PADDOCK_REQUIRES(mutex_);
  void requireAnswering();
  std::unique_ptr<LdapConnection> takeIdle();
  std::string passwordOfAccount() const;

  const LdapOptions options_;
  LinuxClock clock_;
  LdapAnswers answers_{clock_, {options_.keeping, options_.timeout}};
  Mutex mutex_;
  std::vector<Idle> idle_ PADDOCK_GUARDED_BY(mutex_);
  TimedValue<LdapError> silence_ PADDOCK_GUARDED_BY(mutex_);
  WriteProof writeProof_ PADDOCK_GUARDED_BY(mutex_) = WriteProof::none;
  Clock::time_point proven_ PADDOCK_GUARDED_BY(mutex_);  // when that was
};

// A text that is overwritten when it is no longer needed.
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
