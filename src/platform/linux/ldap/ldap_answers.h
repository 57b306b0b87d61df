// What a directory server said of its users and groups, for all sessions and threads: a question
// that is being asked is not asked a second time, and its answer holds for a short while.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/clock.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_account.h"

namespace paddock {

class LdapAnswers {
 public:
  using Answer = std::vector<LdapAccount>;
  using Ask = std::function<Answer()>;
  // Answers the questions at these places of a list, in their order.
  using AskEach = std::function<std::vector<Answer>(const std::vector<std::size_t>& places)>;

  // How many answers are kept; the next one drops them all.
  static constexpr std::size_t kCapacity = 1024;
  // The text of an answer that is kept, in bytes.
  static constexpr std::size_t kLargest = 16384;

  struct Times {
    // How long an answer holds, from when its question was asked; zero: every question is asked.
    std::chrono::milliseconds keeping;
    // How long an answer that somebody else is asking for is waited for.
    std::chrono::milliseconds patience;
  };

  // The caller keeps the clock alive.
  LdapAnswers(Clock& clock, Times times) : clock_(clock), times_(times) {}

  // The answer that holds, or that another thread is asking for, or what `ask` returns. A failure,
  // a DirectoryError, is thrown to everybody who waited for it, and not kept. Who has waited for
  // too long asks for itself. Any thread may call.
  Answer get(const std::string& key, const Ask& ask);

  // The same for several; those that have to be asked are asked together.
  std::vector<Answer> getEach(const std::vector<std::string>& keys, const AskEach& ask);

  // Keeps what was found besides; `asked` is from before the server was.
  void keep(const std::string& key, const Answer& answer,
            std::chrono::steady_clock::time_point asked);
  std::chrono::steady_clock::time_point now() const { return clock_.monotonicNow(); }

  // How many callers wait for another one's answer just now.
  std::size_t waiting() const;

 private:
  struct Kept {
    Answer answer;
    std::chrono::steady_clock::time_point end;
  };
  // Each thread throws an error of its own, made of these.
  struct Failure {
    explicit Failure(const DirectoryError& error) : status(error.status()), text(error.what()) {}
    [[noreturn]] void raise() const;

    std::optional<Status> status;
    std::string text;
  };
  // One that is being asked.
  struct Question {
    bool isOver = false;
    std::optional<Answer> answer;
    std::optional<Failure> failure;
  };

  Answer askAs(const std::shared_ptr<Question>& question, const std::string& key, const Ask& ask);
  // One of several: what is known of it, and whether it is this caller's to ask.
  struct Lookup {
    std::optional<Answer> answer;
    std::shared_ptr<Question> question;
    bool isMine = false;
  };

  std::optional<Answer> known(const std::string& key);  // with the lock
  Lookup lookUp(const std::string& key);
  void askMine(std::vector<Lookup>& all, const std::vector<std::string>& keys, const AskEach& ask);
  Answer awaitOrAsk(std::unique_lock<std::mutex> lock, const Question& question, const Ask& ask);
  void settle(Question& question, const std::string& key);

  Clock& clock_;
  const Times times_;
  mutable std::mutex mutex_;
  std::condition_variable settled_;
  std::unordered_map<std::string, Kept> kept_;
  std::unordered_map<std::string, std::shared_ptr<Question>> underWay_;
  std::size_t waiting_ = 0;
};

}  // namespace paddock
