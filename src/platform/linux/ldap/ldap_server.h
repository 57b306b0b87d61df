// One configured directory server, for all sessions and threads: connections that nobody uses just
// now, what it said of users and groups, and whether it answers at all.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/ldap/ldap_answers.h"
#include "platform/linux/ldap/ldap_connection.h"
#include "platform/linux/ldap/ldap_error.h"
#include "platform/linux/process/linux_clock.h"

namespace paddock {

class LdapServer {
 public:
  explicit LdapServer(LdapOptions options) : options_(std::move(options)) {}
  LdapServer(const LdapServer&) = delete;
  LdapServer& operator=(const LdapServer&) = delete;

  const LdapOptions& options() const { return options_; }

  // A connection on which nobody but the configured account is authenticated: one that was given
  // back, or a new one. It belongs to the caller alone. Throws what connecting and binding throw;
  // EACCES also when the password of the account cannot be read. What it does counts against the
  // allowance.
  std::unique_ptr<LdapConnection> take(const std::shared_ptr<LdapAllowance>& allowance);
  // A new connection on which nobody is authenticated.
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

  // For when a connection broke: closes those that nobody uses.
  void closeIdle();

  // To be told of every error, so that a server that did not answer in time is not waited for again
  // for a while (`LdapOptions::silence`): until then `take` and `open` throw the same at once.
  void noteFailure(const LdapError& error);

 private:
  using Clock = std::chrono::steady_clock;
  struct Idle {
    std::unique_ptr<LdapConnection> connection;
    Clock::time_point since;
  };
  struct Silence {
    Clock::time_point until;
    LdapError error;
  };

  void forgetRefusal();  // with the lock
  void requireAnswering();
  std::unique_ptr<LdapConnection> takeIdle();
  std::string passwordOfAccount() const;

  const LdapOptions options_;
  LinuxClock clock_;
  LdapAnswers answers_{clock_, {options_.keeping, options_.timeout}};
  std::mutex mutex_;
  std::vector<Idle> idle_;
  std::optional<Silence> silence_;
  WriteProof writeProof_ = WriteProof::none;
  Clock::time_point proven_;  // when that was
};

}  // namespace paddock
