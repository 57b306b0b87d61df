#include "platform/linux/accounts/pam_authentication.h"

#include <security/pam_appl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/directory.h"

namespace paddock {

namespace {

// PAM frees the answers.
void release(pam_response* answers, int count) {
  for (int i = 0; i < count; ++i) {
    if (answers[i].resp != nullptr) ::explicit_bzero(answers[i].resp, std::strlen(answers[i].resp));
    std::free(answers[i].resp);
  }
  std::free(answers);
}

// PAM conversation: answers prompts without echo with the password, fails other prompts and drops
// messages.
int answer(const pam_message& message, const char* password, pam_response& response) {
  switch (message.msg_style) {
    case PAM_PROMPT_ECHO_OFF:
      response.resp = ::strdup(password);
      return response.resp == nullptr ? PAM_BUF_ERR : PAM_SUCCESS;
    case PAM_TEXT_INFO:
    case PAM_ERROR_MSG:
      return PAM_SUCCESS;
    default:
      return PAM_CONV_ERR;
  }
}

int converse(int count, const pam_message** messages, pam_response** responses, void* password) {
  if (count <= 0 || count > PAM_MAX_NUM_MSG) return PAM_CONV_ERR;
  auto* answers = static_cast<pam_response*>(
      std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
  if (answers == nullptr) return PAM_BUF_ERR;
  for (int i = 0; i < count; ++i) {
    const int result = answer(*messages[i], static_cast<const char*>(password), answers[i]);
    if (result == PAM_SUCCESS) continue;
    release(answers, count);
    return result;
  }
  *responses = answers;
  return PAM_SUCCESS;
}

// A PAM transaction.
class Transaction {
 public:
  Transaction(const PamOptions& options, const std::string& user, const std::string& password)
      : conversation_{converse, const_cast<char*>(password.c_str())} {
    const char* folder =
        options.configurationFolder.empty() ? nullptr : options.configurationFolder.c_str();
    result_ = ::pam_start_confdir(options.service.c_str(), user.c_str(), &conversation_, folder,
                                  &handle_);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() {
    if (handle_ != nullptr) ::pam_end(handle_, result_);
  }

  int authenticate() {
    constexpr int kFlags = PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK;
    if (result_ == PAM_SUCCESS) result_ = ::pam_authenticate(handle_, kFlags);
    if (result_ == PAM_SUCCESS) result_ = ::pam_acct_mgmt(handle_, kFlags);
    return result_;
  }

 private:
  pam_conv conversation_;
  pam_handle_t* handle_ = nullptr;
  int result_ = PAM_SUCCESS;
};

bool cannotTell(int result) {
  switch (result) {
    case PAM_OPEN_ERR:
    case PAM_SYMBOL_ERR:
    case PAM_SERVICE_ERR:
    case PAM_SYSTEM_ERR:
    case PAM_BUF_ERR:
    case PAM_ABORT:
    case PAM_AUTHINFO_UNAVAIL:
    case PAM_MODULE_UNKNOWN:
      return true;
    default:
      return false;
  }
}

}  // namespace

Status authenticateWithPam(const PamOptions& options, const std::string& user,
                           const std::string& password) {
  if (user.empty() || password.empty()) return EACCES;
  if (user.find('\0') != std::string::npos || password.find('\0') != std::string::npos)
    return EACCES;
  const int result = Transaction(options, user, password).authenticate();
  if (result == PAM_SUCCESS) return 0;
  if (cannotTell(result))
    throw DirectoryError(EIO, "PAM service \"" + options.service +
                                  "\" cannot authenticate: " + ::pam_strerror(nullptr, result));
  return EACCES;
}

}  // namespace paddock
