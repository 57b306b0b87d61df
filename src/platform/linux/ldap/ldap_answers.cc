#include "platform/linux/ldap/ldap_answers.h"

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

void LdapAnswers::Failure::raise() const {
  if (status) throw DirectoryError(*status, text);
  throw DirectoryError(text);
}

LdapAnswers::Answer LdapAnswers::get(const std::string& key, const Ask& ask) {
  if (times_.keeping.count() == 0) return ask();
  MutexLock lock(mutex_);
  if (const Answer* known = kept_.find(key, now())) return *known;
  if (const auto found = underWay_.find(key); found != underWay_.end()) {
    const std::shared_ptr<Question> question = found->second;
    const bool isOver = awaitEnd(*question);
    lock.unlock();
    return answerOrAsk(isOver, *question, ask);
  }
  const auto question = std::make_shared<Question>();
  underWay_.emplace(key, question);
  lock.unlock();
  return askAs(question, key, ask);
}

std::vector<LdapAnswers::Answer> LdapAnswers::getEach(const std::vector<std::string>& keys,
                                                      const AskEach& ask) {
  std::vector<Lookup> all;
  all.reserve(keys.size());
  for (const std::string& key : keys) all.push_back(lookUp(key));
  askMine(all, keys, ask);
  // Nobody waits before having answered what is his to ask.
  std::vector<Answer> answers;
  answers.reserve(keys.size());
  for (std::size_t at = 0; at < keys.size(); ++at) {
    if (all[at].answer) {
      answers.push_back(std::move(*all[at].answer));
      continue;
    }
    const Question& question = *all[at].question;
    MutexLock lock(mutex_);
    const bool isOver = awaitEnd(question);
    lock.unlock();
    answers.push_back(answerOrAsk(isOver, question, [&] { return std::move(ask({at}).front()); }));
  }
  return answers;
}

LdapAnswers::Lookup LdapAnswers::lookUp(const std::string& key) {
  if (times_.keeping.count() == 0) return {std::nullopt, std::make_shared<Question>(), true};
  const MutexLock lock(mutex_);
  if (const Answer* known = kept_.find(key, now())) return {*known, nullptr, false};
  const auto [place, isMine] = underWay_.emplace(key, nullptr);
  if (isMine) place->second = std::make_shared<Question>();
  return {std::nullopt, place->second, isMine};
}

void LdapAnswers::askMine(std::vector<Lookup>& all, const std::vector<std::string>& keys,
                          const AskEach& ask) {
  std::vector<std::size_t> mine;
  for (std::size_t at = 0; at < all.size(); ++at)
    if (all[at].isMine) mine.push_back(at);
  if (mine.empty()) return;
  const auto asked = now();
  const auto settleAll = [&] {
    for (const std::size_t at : mine) settle(*all[at].question, keys[at]);
  };
  try {
    auto found = ask(mine);
    for (std::size_t number = 0; number < mine.size(); ++number) {
      Lookup& one = all[mine[number]];
      keep(keys[mine[number]], found[number], asked);
      one.question->answer = found[number];
      one.answer = std::move(found[number]);
    }
    settleAll();
  } catch (const DirectoryError& error) {
    for (const std::size_t at : mine) all[at].question->failure.emplace(error);
    settleAll();
    throw;
  } catch (...) {
    settleAll();
    throw;
  }
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
    question->failure.emplace(error);
    settle(*question, key);
    throw;
  } catch (...) {
    settle(*question, key);
    throw;
  }
}

bool LdapAnswers::awaitEnd(const Question& question) {
  ++waiting_;
  const auto end = std::chrono::steady_clock::now() + times_.patience;
  while (!question.isOver && settled_.wait_until(mutex_, end)) continue;
  --waiting_;
  return question.isOver;
}

LdapAnswers::Answer LdapAnswers::answerOrAsk(bool isOver, const Question& question,
                                             const Ask& ask) {
  // Nobody changes a question that is over.
  if (isOver && question.answer) return *question.answer;
  if (isOver && question.failure) question.failure->raise();
  return ask();
}

void LdapAnswers::settle(Question& question, const std::string& key) {
  const MutexLock lock(mutex_);
  question.isOver = true;
  underWay_.erase(key);
  settled_.notify_all();
}

void LdapAnswers::keep(const std::string& key, const Answer& answer, SteadyTime asked) {
  if (times_.keeping.count() == 0 || sizeOf(answer) > kLargest) return;
  const MutexLock lock(mutex_);
  kept_.keep(key, answer, asked);
}

std::size_t LdapAnswers::waiting() const {
  const MutexLock lock(mutex_);
  return waiting_;
}

}  // namespace paddock
