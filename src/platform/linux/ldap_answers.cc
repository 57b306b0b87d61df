#include "platform/linux/ldap_answers.h"

namespace paddock {

namespace {

std::size_t sizeOf(const LdapAnswers::Answer& answer) {
  std::size_t size = 0;
  for (const LdapAccount& account : answer) {
    size += account.dn.size() + account.order.size();
    for (const auto& [attribute, values] : account.attributes) {
      size += attribute.size();
      for (const std::string& value : values) size += value.size();
    }
  }
  return size;
}

}  // namespace

LdapAnswers::Answer LdapAnswers::get(const std::string& key, const Ask& ask) {
  if (times_.keeping.count() == 0) return ask();
  std::unique_lock lock(mutex_);
  if (const auto found = kept_.find(key); found != kept_.end()) {
    if (now() < found->second.end) return found->second.answer;
    kept_.erase(found);
  }
  if (const auto found = underWay_.find(key); found != underWay_.end()) {
    const std::shared_ptr<Question> question = found->second;
    return awaitOrAsk(std::move(lock), *question, ask);
  }
  const auto question = std::make_shared<Question>();
  underWay_.emplace(key, question);
  lock.unlock();
  return askAs(question, key, ask);
}

LdapAnswers::Answer LdapAnswers::askAs(const std::shared_ptr<Question>& question,
                                       const std::string& key, const Ask& ask) {
  const auto asked = now();
  try {
    Answer answer = ask();
    keep(key, answer, asked);
    question->answer = answer;
    settle(*question, key);
    return answer;
  } catch (const DirectoryError& error) {
    question->error = error;
    settle(*question, key);
    throw;
  } catch (...) {
    settle(*question, key);
    throw;
  }
}

LdapAnswers::Answer LdapAnswers::awaitOrAsk(std::unique_lock<std::mutex> lock,
                                            const Question& question, const Ask& ask) {
  ++waiting_;
  const bool isOver = settled_.wait_for(lock, times_.patience, [&] { return question.isOver; });
  --waiting_;
  lock.unlock();
  // Nobody changes a question that is over.
  if (isOver && question.answer) return *question.answer;
  if (isOver && question.error) throw DirectoryError(*question.error);
  return ask();
}

void LdapAnswers::settle(Question& question, const std::string& key) {
  const std::lock_guard lock(mutex_);
  question.isOver = true;
  underWay_.erase(key);
  settled_.notify_all();
}

void LdapAnswers::keep(const std::string& key, const Answer& answer,
                       std::chrono::steady_clock::time_point asked) {
  if (times_.keeping.count() == 0 || sizeOf(answer) > kLargest) return;
  const std::lock_guard lock(mutex_);
  if (kept_.size() >= kCapacity) kept_.clear();
  kept_.insert_or_assign(key, Kept{answer, asked + times_.keeping});
}

std::size_t LdapAnswers::waiting() const {
  const std::lock_guard lock(mutex_);
  return waiting_;
}

}  // namespace paddock
