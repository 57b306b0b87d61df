// Cache of a directory server's users and groups, shared by all sessions and threads: concurrent
// identical queries are coalesced, and an answer is valid for a short while.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/mutex.h"
#include "base/timed_cache.h"
#include "platform/directory.h"
#include "platform/directory_values.h"
#include "platform/machine_information.h"

namespace paddock {

// A user or group of a directory server.
struct LdapAccount {
  std::string dn;
  std::string order;                        // sorts records in the order of their creation
  std::vector<AttributeChange> attributes;  // RecordName first, RecordType second
  // Whether the entry is of the classes of this type and of none of the other type's.
  bool isOfOneType = true;
};

class LdapAnswers {
 public:
  using Answer = std::vector<LdapAccount>;
  using Ask = std::function<Answer()>;
  // Answers the questions at these places of a list, in their order.
  using AskEach = std::function<std::vector<Answer>(const std::vector<std::size_t>& places)>;

  // Maximum number of entries.
  static constexpr std::size_t kCapacity = 1024;
  // Maximum text size of a cached answer, in bytes.
  static constexpr std::size_t kLargest = 16384;

  struct Times {
    // Lifetime of an answer, from the start of its query; zero: no caching.
    std::chrono::milliseconds keeping;
    // Maximum wait for the answer to another caller's query.
    std::chrono::milliseconds patience;
  };

  // The clock must outlive this object.
  LdapAnswers(Clock& clock, Times times)
      : clock_(clock), times_(times), kept_(times.keeping, kCapacity) {}

  // The cached answer, or that of a pending query of another thread, or the result of `ask`. A
  // failure, a DirectoryError, is thrown to all waiting callers, and not cached. A caller that has
  // waited for too long sends its own query. Thread-safe.
  Answer get(const std::string& key, const Ask& ask);

  // The same for several; those that have to be asked are asked together.
  std::vector<Answer> getEach(const std::vector<std::string>& keys, const AskEach& ask);

  // Keeps what was found besides; `asked` is from before the server was.
  void keep(const std::string& key, const Answer& answer, SteadyTime asked)
      PADDOCK_EXCLUDES(mutex_);
  SteadyTime now() const { return clock_.monotonicNow(); }

  // The number of callers currently waiting for another one's answer.
  std::size_t waiting() const;

 private:
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

  Answer askAs(const std::shared_ptr<Question>& question, const std::string& key, const Ask& ask)
      PADDOCK_EXCLUDES(mutex_);
  // One of several: what is known of it, and whether it is this caller's to ask.
  struct Lookup {
    std::optional<Answer> answer;
    std::shared_ptr<Question> question;
    bool isMine = false;
  };

  Lookup lookUp(const std::string& key) PADDOCK_EXCLUDES(mutex_);
  void askMine(std::vector<Lookup>& all, const std::vector<std::string>& keys, const AskEach& ask)
      PADDOCK_EXCLUDES(mutex_);
  // Whether the question was over within the patience.
  bool awaitEnd(const Question& question) PADDOCK_REQUIRES(mutex_);
  // What came of one that is over; else what `ask` returns.
  static Answer answerOrAsk(bool isOver, const Question& question, const Ask& ask);
  void settle(Question& question, const std::string& key) PADDOCK_EXCLUDES(mutex_);

  Clock& clock_;
  const Times times_;
  mutable Mutex mutex_;
  ConditionVariable settled_;
  TimedCache<std::string, Answer, std::unordered_map> kept_ PADDOCK_GUARDED_BY(mutex_);
  std::unordered_map<std::string, std::shared_ptr<Question>> underWay_ PADDOCK_GUARDED_BY(mutex_);
  std::size_t waiting_ PADDOCK_GUARDED_BY(mutex_) = 0;
};

}  // namespace paddock
