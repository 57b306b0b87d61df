#include "keelhouse/core/input.h"

#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "base/system_call.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kMaximumPassword = 1024;

std::size_t readSome(int descriptor, char* buffer, std::size_t size) {
  const ssize_t count = retryOnInterrupt([=] { return ::read(descriptor, buffer, size); });
  if (count < 0) {
    throw usageFailure("descriptor " + std::to_string(descriptor) +
                       " cannot be read: " + std::generic_category().message(errno));
  }
  return static_cast<std::size_t>(count);
}

// One byte at a time, so that what stands behind the line is left to be read.
std::string readLine(int descriptor) {
  std::string line;
  char byte = 0;
  while (readSome(descriptor, &byte, 1) == 1 && byte != '\n') {
    line += byte;
    if (line.size() > kMaximumPassword) throw usageFailure("the password is too long");
  }
  return line;
}

// The terminal without echo, and with the interrupt key as a character, so that the echo comes
// back whatever the user does.
class QuietTerminal {
 public:
  explicit QuietTerminal(int descriptor) : descriptor_(descriptor) {
    if (::tcgetattr(descriptor_, &before_) != 0) throw usageFailure("the terminal does not answer");
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    if (::tcsetattr(descriptor_, TCSAFLUSH, &quiet) != 0) {
      throw usageFailure("the terminal's echo cannot be turned off");
    }
  }
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;
  ~QuietTerminal() { ::tcsetattr(descriptor_, TCSAFLUSH, &before_); }

  char interruptKey() const { return static_cast<char>(before_.c_cc[VINTR]); }

 private:
  int descriptor_;
  termios before_{};
};

void print(int descriptor, const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const ssize_t count =
        retryOnInterrupt([&] { return ::write(descriptor, text.data() + at, text.size() - at); });
    if (count < 0) return;
    at += static_cast<std::size_t>(count);
  }
}

std::string askWithoutEcho(const std::string& prompt) {
  const QuietTerminal terminal(STDIN_FILENO);
  print(STDERR_FILENO, printable(prompt));
  std::string line = readLine(STDIN_FILENO);
  print(STDERR_FILENO, "\n");
  if (line.find(terminal.interruptKey()) != std::string::npos) throw failure("interrupted");
  return line;
}

std::string askPassword(const std::string& prompt, bool confirm) {
  std::string password = askWithoutEcho(prompt + ": ");
  if (confirm && askWithoutEcho(prompt + " again: ") != password) {
    throw usageFailure("the two passwords differ");
  }
  return password;
}

}  // namespace

std::string readAll(int descriptor, std::size_t maximum) {
  std::string text;
  std::array<char, 65536> buffer{};
  while (const std::size_t count = readSome(descriptor, buffer.data(), buffer.size())) {
    if (count > maximum - text.size()) throw usageFailure("the input is too long");
    text.append(buffer.data(), count);
  }
  return text;
}

std::string readPassword(int descriptor, const std::string& prompt, bool confirm) {
  const bool ask = descriptor < 0 && ::isatty(STDIN_FILENO) == 1;
  std::string password =
      ask ? askPassword(prompt, confirm) : readLine(descriptor < 0 ? STDIN_FILENO : descriptor);
  if (password.empty()) throw usageFailure("the password is empty");
  if (!isValidUtf8(password)) throw usageFailure("the password is not UTF-8");
  return password;
}

std::optional<Credentials> readCredentials(const NodeAccount& account) {
  if (account.name.empty()) return std::nullopt;
  constexpr bool kConfirm = false;
  return Credentials{account.name, readPassword(account.passwordDescriptor,
                                                "Password of " + account.name, kConfirm)};
}

void setCredentials(Dictionary& request, const std::optional<Credentials>& credentials) {
  if (!credentials) return;
  request.set(protocol::kAdminUserName, credentials->user);
  request.set(protocol::kAdminPassword, credentials->password);
}

}  // namespace paddock::keelhouse
