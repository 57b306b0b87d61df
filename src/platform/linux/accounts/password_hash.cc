#include "platform/linux/accounts/password_hash.h"

#include <crypt.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>

namespace paddock {

namespace {

constexpr const char* kYescrypt = "$y$";

struct Wipe {
  void operator()(crypt_data* data) const {
    ::explicit_bzero(data, sizeof *data);
    delete data;
  }
};

bool isUsable(const std::string& password) {
  return !password.empty() && password.find('\0') == std::string::npos &&
         password.size() < CRYPT_MAX_PASSPHRASE_SIZE;
}

std::string newSetting() {
  std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
  if (::crypt_gensalt_rn(kYescrypt, 0, nullptr, 0, setting.data(),
                         static_cast<int>(setting.size())) == nullptr)
    throw std::system_error(errno, std::system_category(), "crypt_gensalt");
  return setting.data();
}

// The hash under the setting (or under that of an earlier hash); empty when there is none.
std::string hashUnder(const std::string& password, const std::string& setting) {
  const std::unique_ptr<crypt_data, Wipe> data(new crypt_data{});
  const char* hash = ::crypt_rn(password.c_str(), setting.c_str(), data.get(), sizeof *data);
  return hash == nullptr ? "" : hash;
}

bool equalInConstantTime(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  unsigned char difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i)
    difference = static_cast<unsigned char>(difference | (left[i] ^ right[i]));
  return difference == 0;
}

}  // namespace

std::string hashPassword(const std::string& password) {
  if (!isUsable(password))
    throw std::system_error(EINVAL, std::system_category(), "the password cannot be used");
  std::string hash = hashUnder(password, newSetting());
  if (hash.empty()) throw std::system_error(errno, std::system_category(), "crypt");
  return hash;
}

bool passwordMatches(const std::string& password, const std::string& hash) {
  if (!isUsable(password) || hash.empty()) return false;
  return equalInConstantTime(hashUnder(password, hash), hash);
}

void spendTimeOfPasswordCheck(const std::string& password) {
  static const std::string setting = newSetting();
  if (isUsable(password)) static_cast<void>(hashUnder(password, setting));
}

}  // namespace paddock
