#include "platform/linux/ldap/ldap_connection.h"

#include <fcntl.h>
#include <ldap.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>

#include "base/text.h"
#include "platform/linux/ldap/ldap_deadline.h"
#include "platform/linux/ldap/ldap_entry_reading.h"
#include "platform/linux/ldap/ldap_error.h"
#include "platform/linux/ldap/ldap_library.h"
#include "platform/linux/ldap/ldap_uris.h"
#include "platform/linux/process/blocked_sigpipe.h"

namespace paddock {

namespace {

constexpr ber_int_t kPageSize = 500;
// What one message may hold; more is not believed.
constexpr ber_len_t kLargestMessage = 32U << 20U;

// The library reads its own configuration once, when it is first used.
void initializeOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    LDAP* handle = nullptr;
    if (ldap_create(&handle) == LDAP_SUCCESS) ldap_unbind_ext_s(handle, nullptr, nullptr);
  });
}

// A list of changes in the library's form; valid as long as the changes.
class Modifications {
 public:
  explicit Modifications(const std::vector<LdapChange>& changes) : parts_(changes.size()) {
    for (std::size_t at = 0; at < changes.size(); ++at) fill(parts_[at], changes[at]);
    for (Part& part : parts_) list_.push_back(&part.modification);
    list_.push_back(nullptr);
  }
  LDAPMod** get() { return list_.data(); }

 private:
  struct Part {
    std::vector<berval> values;
    std::vector<berval*> pointers;
    LDAPMod modification{};
  };

  static int operationOf(LdapChange::Kind kind) {
    if (kind == LdapChange::Kind::add) return LDAP_MOD_ADD;
    return kind == LdapChange::Kind::remove ? LDAP_MOD_DELETE : LDAP_MOD_REPLACE;
  }

  static void fill(Part& part, const LdapChange& change) {
    part.values.reserve(change.values.size());
    for (const std::string& value : change.values) part.values.push_back(bervalOf(value));
    for (berval& value : part.values) part.pointers.push_back(&value);
    part.pointers.push_back(nullptr);
    part.modification.mod_op = operationOf(change.kind) | LDAP_MOD_BVALUES;
    part.modification.mod_type = const_cast<char*>(change.attribute.c_str());
    part.modification.mod_bvalues = part.values.empty() ? nullptr : part.pointers.data();
  }

  std::vector<Part> parts_;
  std::vector<LDAPMod*> list_;
};

}  // namespace

const std::vector<std::string>& LdapEntry::values(std::string_view attribute) const {
  static const std::vector<std::string> none;
  const auto found = attributes.find(asciiLower(attribute));
  return found == attributes.end() ? none : found->second;
}

std::string LdapEntry::first(std::string_view attribute) const {
  const auto& all = values(attribute);
  return all.empty() ? std::string() : all.front();
}

// Told of every socket that the library has connected, before TLS starts on it.
class LdapConnection::Callback {
 public:
  // `timeout`: of each step; `time`: of connecting to an address.
  Callback(std::chrono::milliseconds timeout, std::chrono::milliseconds time)
      : timeout_(timeout), time_(time) {
    callback_.lc_add = &Callback::added;
    callback_.lc_del = [](LDAP*, Sockbuf*, ldap_conncb*) {};
    callback_.lc_arg = this;
  }
  ldap_conncb* get() { return &callback_; }
  bool connected() const { return connected_; }
  // Why a connection was given up as soon as it was made.
  int error() const { return error_; }
  LdapDeadline& deadline() { return deadline_; }

 private:
  static int added(LDAP*, Sockbuf* socket, LDAPURLDesc*, sockaddr*, ldap_conncb* callback) {
    auto& self = *static_cast<Callback*>(callback->lc_arg);
    self.error_ = self.setUp(socket);
    self.connected_ = self.error_ == 0;
    return self.connected_ ? LDAP_SUCCESS : LDAP_LOCAL_ERROR;
  }

  // Returns the errno of what keeps the connection from being bounded.
  int setUp(Sockbuf* socket) {
    deadline_.set(time_);
    int descriptor = -1;
    ber_len_t largest = kLargestMessage;
    if (ber_sockbuf_ctrl(socket, LBER_SB_OPT_GET_FD, &descriptor) != 1 ||
        !deadline_.addTo(socket, descriptor, timeout_) ||
        ber_sockbuf_ctrl(socket, LBER_SB_OPT_SET_MAX_INCOMING, &largest) != 1)
      return ENOMEM;
    // The library waits for a whole TLS record, and for buffer space, without checking its timeout.
    const timeval time = timevalOf(timeout_);
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO})
      if (::setsockopt(descriptor, SOL_SOCKET, option, &time, sizeof time) != 0) return errno;
    return ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0 ? errno : 0;
  }

  std::chrono::milliseconds timeout_;
  std::chrono::milliseconds time_;
  ldap_conncb callback_{};
  LdapDeadline deadline_;
  bool connected_ = false;
  int error_ = 0;
};

struct LdapConnection::Page {
  std::vector<LdapEntry> entries;
  std::string cookie;
};

LdapConnection::LdapConnection(const LdapOptions& options, std::shared_ptr<LdapAllowance> allowance)
    : options_(options),
      allowance_(std::move(allowance)),
      callback_(std::make_unique<Callback>(options.timeout, stepTime())) {
  initializeOnce();
  if (options_.tls == LdapTls::ldaps && hasUriOfScheme(options_.uri, "ldap"))
    throw LdapError(LDAP_PARAM_ERROR, what("connecting", ""), "tls is \"ldaps\", a URI is ldap://");
  callback_->deadline().count(allowance_);
  const int result = ldap_initialize(&ldap_, options_.uri.c_str());
  if (result != LDAP_SUCCESS) throw LdapError(result, what("connecting", ""), "the URI");
  try {
    const BlockedSigpipe blocked;
    setOptions();
    connect();
    usable_ = true;
    if (options_.tls == LdapTls::startTls && ldap_tls_inplace(ldap_) == 0) startTls();
  } catch (...) {
    ldap_unbind_ext(ldap_, nullptr, nullptr);
    throw;
  }
}

LdapConnection::~LdapConnection() {
  const BlockedSigpipe blocked;
  ldap_unbind_ext(ldap_, nullptr, nullptr);
}

void LdapConnection::count(std::shared_ptr<LdapAllowance> allowance) {
  allowance_ = std::move(allowance);
  callback_->deadline().count(allowance_);
}

std::chrono::milliseconds LdapConnection::stepTime() const {
  return allowance_ ? std::min(options_.timeout, allowance_->timeLeft()) : options_.timeout;
}

void LdapConnection::setOption(int option, const void* value) {
  if (ldap_set_option(ldap_, option, value) != LDAP_OPT_SUCCESS)
    throw LdapError(LDAP_PARAM_ERROR, what("connecting", ""),
                    "option " + std::to_string(option) + " of the library");
}

// Everything that matters here is set, so that no file or variable of the environment that the
// library reads has a say in it.
void LdapConnection::setOptions() {
  // The library takes no time at all for no bound.
  const timeval time = timevalOf(std::max(stepTime(), std::chrono::milliseconds(1)));
  const auto setNumber = [this](int option, int value) { setOption(option, &value); };
  setNumber(LDAP_OPT_PROTOCOL_VERSION, LDAP_VERSION3);
  setOption(LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
  setOption(LDAP_OPT_RESTART, LDAP_OPT_ON);
  setNumber(LDAP_OPT_DEREF, LDAP_DEREF_NEVER);
  setNumber(LDAP_OPT_SIZELIMIT, LDAP_NO_LIMIT);
  setNumber(LDAP_OPT_TIMELIMIT, LDAP_NO_LIMIT);
  setOption(LDAP_OPT_NETWORK_TIMEOUT, &time);
  setOption(LDAP_OPT_TIMEOUT, &time);
  setOption(LDAP_OPT_CONNECT_CB, callback_->get());
  setTlsOptions();
}

// On every handle: which of several URIs answers, and what it speaks, is known only afterwards. A
// handle without a TLS URI trusts no authority.
void LdapConnection::setTlsOptions() {
  const bool mayBeTls = options_.tls != LdapTls::none || hasUriOfScheme(options_.uri, "ldaps");
  const auto setNumber = [this](int option, int value) { setOption(option, &value); };
  setNumber(LDAP_OPT_X_TLS_REQUIRE_CERT, LDAP_OPT_X_TLS_DEMAND);
  setNumber(LDAP_OPT_X_TLS_REQUIRE_SAN, LDAP_OPT_X_TLS_ALLOW);
  setNumber(LDAP_OPT_X_TLS_PROTOCOL_MIN, LDAP_OPT_X_TLS_PROTOCOL_TLS1_2);
  for (const int none : {LDAP_OPT_X_TLS_CACERTDIR, LDAP_OPT_X_TLS_CERTFILE, LDAP_OPT_X_TLS_KEYFILE,
                         LDAP_OPT_X_TLS_CIPHER_SUITE})
    setOption(none, "");
  setOption(LDAP_OPT_X_TLS_CACERTFILE, mayBeTls ? options_.caFile.c_str() : "");
  const int isServer = 0;
  if (!mayBeTls) {
    setOption(LDAP_OPT_X_TLS_NEWCTX, &isServer);
  } else if (ldap_set_option(ldap_, LDAP_OPT_X_TLS_NEWCTX, &isServer) != LDAP_OPT_SUCCESS) {
    throw LdapError(LDAP_CONNECT_ERROR, what("connecting", ""),
                    "the certificates of " + options_.caFile + " cannot be used");
  }
}

void LdapConnection::connect() {
  errno = 0;
  const int result = ldap_connect(ldap_);
  const int number = errno;
  if (result != LDAP_SUCCESS || callback_->error() != 0) failConnecting(result, number);
  callback_->deadline().release();
}

void LdapConnection::failConnecting(int result, int number) {
  requireAllowance(what("connecting", ""));
  const std::string diagnostic = diagnosticMessage();
  if (callback_->error() != 0)
    throw LdapError(LDAP_LOCAL_ERROR, callback_->error(), what("connecting", ""), diagnostic);
  if (result == LDAP_NO_MEMORY) throw LdapError(result, what("connecting", ""), diagnostic);
  if (callback_->deadline().hasExpired() || result == LDAP_TIMEOUT || number == ETIMEDOUT)
    throw LdapError(LDAP_TIMEOUT, what("connecting", ""), diagnostic);
  if (callback_->connected())
    throw LdapConnectionLost(LDAP_CONNECT_ERROR, what("starting TLS", ""), diagnostic);
  const Status status = statusOfConnecting(options_.uri, number);
  throw LdapConnectionLost(result, status, what("connecting", ""), diagnostic);
}

void LdapConnection::startTls() {
  const std::string doing = what("starting TLS", "");
  int message = 0;
  requireSent(ldap_start_tls(ldap_, nullptr, nullptr, &message), doing);
  const LdapMessage answer(await(message, doing));
  int result = LDAP_OTHER;
  char* diagnostic = nullptr;
  const int parsed =
      ldap_parse_result(ldap_, answer.get(), &result, nullptr, &diagnostic, nullptr, nullptr, 0);
  const std::string text = takeLdapText(diagnostic);
  if (parsed != LDAP_SUCCESS) fail(parsed, doing);
  if (result != LDAP_SUCCESS) {
    usable_ = false;
    throw LdapError(result, EKEYREJECTED, doing, text);
  }
  callback_->deadline().set(stepTime());
  errno = 0;
  const int installed = ldap_install_tls(ldap_);
  const int number = errno;
  callback_->deadline().release();
  if (installed == LDAP_SUCCESS) return;
  usable_ = false;
  failConnecting(installed, number);
}

void LdapConnection::bind(const std::string& dn, const std::string& password) {
  const BlockedSigpipe blocked;
  const std::string doing = what("authenticating", dn);
  berval secret = bervalOf(password);
  int message = 0;
  const int sent =
      ldap_sasl_bind(ldap_, dn.c_str(), LDAP_SASL_SIMPLE, &secret, nullptr, nullptr, &message);
  finish(sent, message, doing);
}

std::vector<LdapEntry> LdapConnection::search(const LdapQuery& query) {
  const BlockedSigpipe blocked;
  std::vector<LdapEntry> entries;
  std::string cookie;
  do {
    Page page = receive(send(query, &cookie), query);
    if (page.entries.empty() && !page.cookie.empty()) {
      usable_ = false;
      throw LdapError(LDAP_MORE_RESULTS_TO_RETURN, what("searching", query.base),
                      "a page without entries that is not the last");
    }
    std::move(page.entries.begin(), page.entries.end(), std::back_inserter(entries));
    cookie = std::move(page.cookie);
  } while (!cookie.empty());
  return entries;
}

std::vector<std::vector<LdapEntry>> LdapConnection::searchEach(
    const std::vector<LdapQuery>& queries) {
  const BlockedSigpipe blocked;
  std::vector<int> messages;
  messages.reserve(queries.size());
  for (const LdapQuery& query : queries) messages.push_back(send(query, nullptr));
  std::vector<std::vector<LdapEntry>> answers(queries.size());
  std::vector<std::size_t> limited;
  std::optional<LdapError> failed;
  for (std::size_t at = 0; at < queries.size(); ++at) {
    try {
      answers[at] = receive(messages[at], queries[at]).entries;
    } catch (const LdapError& error) {
      if (!usable_) throw;
      const bool mayBeGone = queries[at].scope == LdapScope::base;
      if (error.result() == LDAP_SIZELIMIT_EXCEEDED)
        limited.push_back(at);
      else if (!failed && !(mayBeGone && error.result() == LDAP_NO_SUCH_OBJECT))
        failed.emplace(error);
    }
  }
  if (failed) throw LdapError(*failed);
  for (const std::size_t at : limited) answers[at] = search(queries[at]);  // in pages
  return answers;
}

int LdapConnection::send(const LdapQuery& query, const std::string* cookie) {
  std::vector<char*> attributes;
  attributes.reserve(query.attributes.size() + 1);
  for (const std::string& attribute : query.attributes)
    attributes.push_back(const_cast<char*>(attribute.c_str()));
  attributes.push_back(nullptr);
  LdapControl paged;
  if (cookie != nullptr && query.scope == LdapScope::subtree) {
    berval place = bervalOf(*cookie);
    LDAPControl* made = nullptr;
    const int result = ldap_create_page_control(ldap_, kPageSize, &place, 0, &made);
    if (result != LDAP_SUCCESS) fail(result, what("searching", query.base));
    paged.reset(made);
  }
  LDAPControl* controls[] = {paged.get(), nullptr};
  int message = 0;
  const int sent =
      ldap_search_ext(ldap_, query.base.c_str(),
                      query.scope == LdapScope::base ? LDAP_SCOPE_BASE : LDAP_SCOPE_SUBTREE,
                      query.filter.c_str(), query.attributes.empty() ? nullptr : attributes.data(),
                      0, paged ? controls : nullptr, nullptr, nullptr, LDAP_NO_LIMIT, &message);
  requireSent(sent, what("searching", query.base));
  return message;
}

LdapConnection::Page LdapConnection::receive(int message, const LdapQuery& query) {
  const std::string doing = what("searching", query.base);
  Page page;
  for (;;) {
    const LdapMessage answer(await(message, doing));
    const int type = ldap_msgtype(answer.get());
    if (type == LDAP_RES_SEARCH_ENTRY) {
      const int read = readLdapEntry(ldap_, answer.get(), page.entries.emplace_back(), *allowance_);
      if (read != LDAP_SUCCESS) fail(read, doing);
    }
    if (type != LDAP_RES_SEARCH_RESULT) continue;
    int result = LDAP_OTHER;
    char* diagnostic = nullptr;
    LDAPControl** controls = nullptr;
    const int parsed = ldap_parse_result(ldap_, answer.get(), &result, nullptr, &diagnostic,
                                         nullptr, &controls, 0);
    const std::string text = takeLdapText(diagnostic);
    const LdapControls owner(controls);
    if (parsed != LDAP_SUCCESS) fail(parsed, doing);
    if (const int read = readPageCookie(ldap_, controls, page.cookie); read != LDAP_SUCCESS)
      fail(read, doing);
    if (result != LDAP_SUCCESS) throw LdapError(result, doing, text);
    return page;
  }
}

void LdapConnection::add(const std::string& dn, const std::vector<LdapChange>& attributes) {
  const BlockedSigpipe blocked;
  Modifications list(attributes);
  int message = 0;
  const int sent = ldap_add_ext(ldap_, dn.c_str(), list.get(), nullptr, nullptr, &message);
  finish(sent, message, what("creating", dn));
}

void LdapConnection::modify(const std::string& dn, const std::vector<LdapChange>& changes) {
  const BlockedSigpipe blocked;
  Modifications list(changes);
  int message = 0;
  const int sent = ldap_modify_ext(ldap_, dn.c_str(), list.get(), nullptr, nullptr, &message);
  finish(sent, message, what("changing", dn));
}

void LdapConnection::rename(const std::string& dn, const std::string& newRdn, bool deleteOldRdn) {
  const BlockedSigpipe blocked;
  int message = 0;
  const int sent = ldap_rename(ldap_, dn.c_str(), newRdn.c_str(), nullptr, deleteOldRdn ? 1 : 0,
                               nullptr, nullptr, &message);
  finish(sent, message, what("renaming", dn));
}

void LdapConnection::remove(const std::string& dn, const std::string& assertion) {
  const BlockedSigpipe blocked;
  LDAPControl* made = nullptr;
  const int result =
      ldap_create_assertion_control(ldap_, const_cast<char*>(assertion.c_str()), 0, &made);
  if (result != LDAP_SUCCESS) fail(result, what("deleting", dn));
  const LdapControl owner(made);
  LDAPControl* controls[] = {made, nullptr};
  int message = 0;
  const int sent = ldap_delete_ext(ldap_, dn.c_str(), controls, nullptr, &message);
  finish(sent, message, what("deleting", dn));
}

ldapmsg* LdapConnection::await(int message, const std::string& doing) {
  timeval time = timevalOf(stepTime());
  LDAPMessage* answer = nullptr;
  errno = 0;
  const int type = ldap_result(ldap_, message, LDAP_MSG_ONE, &time, &answer);
  if (type > 0) return answer;
  if (type < 0 && errno == ERANGE) {  // to the library, such a server is gone
    usable_ = false;
    throw LdapError(
        LDAP_DECODING_ERROR, doing,
        "no LDAP message, or one of more than " + std::to_string(kLargestMessage) + " bytes");
  }
  int result = type < 0 ? LDAP_OTHER : LDAP_TIMEOUT;
  if (type < 0) ldap_get_option(ldap_, LDAP_OPT_RESULT_CODE, &result);
  fail(result, doing);
}

void LdapConnection::finish(int sent, int message, const std::string& doing) {
  std::string diagnostic;
  const int result = resultOf(sent, message, doing, diagnostic);
  if (result != LDAP_SUCCESS) throw LdapError(result, doing, diagnostic);
}

int LdapConnection::resultOf(int sent, int message, const std::string& doing,
                             std::string& diagnostic) {
  requireSent(sent, doing);
  const LdapMessage answer(await(message, doing));
  int result = LDAP_OTHER;
  char* text = nullptr;
  const int parsed =
      ldap_parse_result(ldap_, answer.get(), &result, nullptr, &text, nullptr, nullptr, 0);
  diagnostic = takeLdapText(text);
  if (parsed != LDAP_SUCCESS) fail(parsed, doing);
  return result;
}

void LdapConnection::requireSent(int sent, const std::string& doing) {
  if (sent != LDAP_SUCCESS) fail(sent, doing);
}

void LdapConnection::requireAllowance(const std::string& doing) {
  if (!allowance_) return;
  if (allowance_->isSpent())
    throw LdapError(
        LDAP_RESULTS_TOO_LARGE, doing,
        "more than the " + std::to_string(options_.answerBytes) + " bytes of \"answer_bytes\"");
  const bool isOver = allowance_->timeLeft().count() == 0;
  if (isOver)
    throw LdapError(LDAP_TIMEOUT, doing,
                    "not done in the " + std::to_string(options_.deadline.count() / 1000) +
                        " s of \"deadline\"");
}

void LdapConnection::fail(int result, const std::string& doing) {
  usable_ = false;
  requireAllowance(doing);
  const std::string diagnostic = diagnosticMessage();
  if (callback_->deadline().hasExpired()) throw LdapError(LDAP_TIMEOUT, doing, diagnostic);
  if (result == LDAP_SERVER_DOWN || result == LDAP_CONNECT_ERROR)
    throw LdapConnectionLost(LDAP_SERVER_DOWN, doing, diagnostic);
  throw LdapError(result, doing, diagnostic);
}

std::string LdapConnection::diagnosticMessage() {
  char* text = nullptr;
  ldap_get_option(ldap_, LDAP_OPT_DIAGNOSTIC_MESSAGE, &text);
  return takeLdapText(text);
}

std::string LdapConnection::what(std::string_view operation, std::string_view dn) const {
  std::string text = options_.path() + " (" + options_.uri + "): " + std::string(operation);
  if (!dn.empty()) text.append(" ").append(dn);
  return text;
}

}  // namespace paddock
