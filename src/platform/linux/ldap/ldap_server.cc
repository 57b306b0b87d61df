#include "platform/linux/ldap/ldap_server.h"

#include <fcntl.h>
#include <ldap.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/file_access.h"
#include "base/system_call.h"

namespace paddock {

namespace {

constexpr std::size_t kMostIdle = 16;
constexpr std::chrono::seconds kLongestIdle{60};
constexpr std::size_t kLongestPassword = 4096;

[[noreturn]] void refusePassword(const LdapOptions& options, Status status, const char* why) {
  throw DirectoryError(status,
                       options.path() + ": the password file " + options.passwordFile + " " + why);
}

}  // namespace

std::unique_ptr<LdapConnection> LdapServer::take(const std::shared_ptr<LdapAllowance>& allowance) {
  if (auto connection = takeIdle()) return connection;
  auto connection = open(allowance);
  if (options_.bindDn.empty()) return connection;
  const Secret password(passwordOfAccount());
  try {
    connection->bind(options_.bindDn, password.text());
  } catch (const LdapError& error) {
    noteFailure(error);
    throw;
  }
  return connection;
}

std::unique_ptr<LdapConnection> LdapServer::open(const std::shared_ptr<LdapAllowance>& allowance) {
  requireAnswering();
  try {
    return std::make_unique<LdapConnection>(options_, allowance);
  } catch (const LdapError& error) {
    noteFailure(error);
    const MutexLock lock(mutex_);
    forgetRefusal();
    throw;
  }
}

LdapServer::WriteProof LdapServer::writeProof() {
  const MutexLock lock(mutex_);
  if (Clock::now() >= proven_ + options_.refusal) forgetRefusal();
  return writeProof_;
}

void LdapServer::setWriteProof(WriteProof proof) {
  const MutexLock lock(mutex_);
  writeProof_ = proof;
  proven_ = Clock::now();
}

void LdapServer::forgetRefusal() {
  if (writeProof_ == WriteProof::refused) writeProof_ = WriteProof::none;
}

void LdapServer::giveBack(std::unique_ptr<LdapConnection> connection) {
  if (!connection->isUsable()) return;
  connection->count(nullptr);
  const MutexLock lock(mutex_);
  if (idle_.size() < kMostIdle) idle_.push_back({std::move(connection), Clock::now()});
}

void LdapServer::closeIdle() {
  std::vector<Idle> closed;  // without the lock
  const MutexLock lock(mutex_);
  closed.swap(idle_);
  forgetRefusal();
}

std::unique_ptr<LdapConnection> LdapServer::takeIdle() {
  std::vector<Idle> old;  // closed without the lock
  const MutexLock lock(mutex_);
  const auto oldest = Clock::now() - kLongestIdle;
  const auto fresh = std::find_if(idle_.begin(), idle_.end(),
                                  [oldest](const Idle& idle) { return idle.since > oldest; });
  std::move(idle_.begin(), fresh, std::back_inserter(old));
  idle_.erase(idle_.begin(), fresh);
  if (idle_.empty()) return nullptr;
  auto connection = std::move(idle_.back().connection);
  idle_.pop_back();
  return connection;
}

void LdapServer::noteFailure(const LdapError& error) {
  if (error.status() != ETIMEDOUT && error.status() != EHOSTUNREACH) return;
  if (error.result() == LDAP_TIMELIMIT_EXCEEDED) return;  // it did answer
  const MutexLock lock(mutex_);
  silence_.keep(error, Clock::now() + options_.silence);
}

void LdapServer::requireAnswering() {
  const MutexLock lock(mutex_);
  if (const LdapError* error = silence_.find(Clock::now())) throw LdapError(*error);
}

std::string LdapServer::passwordOfAccount() const {
  const FileDescriptor file(retryOnInterrupt([this] {
    return ::open(options_.passwordFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0)
    refusePassword(options_, errno == ENOENT ? EACCES : errno, "cannot be read");
  if (!S_ISREG(status.st_mode)) refusePassword(options_, EACCES, "is not a file");
  if ((status.st_mode & S_IRWXO) != 0) refusePassword(options_, EACCES, "is open to everybody");
  std::string text(kLongestPassword + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const ssize_t count = retryOnInterrupt(
        [&] { return ::read(file.get(), text.data() + size, text.size() - size); });
    if (count < 0) refusePassword(options_, errno, "cannot be read");
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  if (size > kLongestPassword) refusePassword(options_, EACCES, "is too long");
  text.resize(size);
  if (text.ends_with('\n')) text.pop_back();
  // A bind with an empty password would be anonymous, and succeed.
  if (text.empty()) refusePassword(options_, EACCES, "is empty");
  return text;
}

}  // namespace paddock
