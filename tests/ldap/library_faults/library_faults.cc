#include "ldap/library_faults/library_faults.h"

#include <fcntl.h>
#include <ldap.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>

namespace paddock {

namespace {

struct Plan {
  bool armed = false;
  int number = 0;
  int calls = 0;
  LibraryFaults::Kind kind = LibraryFaults::Kind::noMemory;
  bool forGood = false;
  std::string failed;
};
Plan plan;

enum class Talks { no, yes };

// Whether this call of the function is to fail.
bool fails(const char* function, Talks talks) {
  if (!plan.armed) return false;
  if (plan.kind == LibraryFaults::Kind::serverDown && talks == Talks::no) return false;
  ++plan.calls;
  if (plan.calls != plan.number && !(plan.forGood && plan.calls > plan.number)) return false;
  if (plan.failed.empty()) plan.failed = function;
  return true;
}

int ldapResult() {
  return plan.kind == LibraryFaults::Kind::noMemory ? LDAP_NO_MEMORY : LDAP_SERVER_DOWN;
}

int errorWith(int number) {
  errno = number;
  return -1;
}

}  // namespace

void LibraryFaults::failAt(int number, Kind kind, bool forGood) {
  plan = {true, number, 0, kind, forGood, ""};
}

void LibraryFaults::heal() { plan.armed = false; }

const std::string& LibraryFaults::failed() { return plan.failed; }

}  // namespace paddock

// The linker gives each call of NAME to __wrap_NAME, and has NAME itself as __real_NAME.
// NOLINTBEGIN(bugprone-reserved-identifier,bugprone-macro-parentheses)
using paddock::errorWith;
using paddock::fails;
using paddock::ldapResult;
using paddock::Talks;

extern "C" {

#define WRAP(talks, failure, name, parameters, arguments) \
  int __real_##name parameters;                           \
  int __wrap_##name parameters {                          \
    if (fails(#name, talks)) return failure;              \
    return __real_##name arguments;                       \
  }

WRAP(Talks::no, ldapResult(), ldap_create, (LDAP * *handle), (handle))
WRAP(Talks::no, ldapResult(), ldap_initialize, (LDAP * *handle, const char* uri), (handle, uri))
WRAP(Talks::yes, ldapResult(), ldap_connect, (LDAP * handle), (handle))
WRAP(Talks::yes, ldapResult(), ldap_start_tls,
     (LDAP * handle, LDAPControl** server, LDAPControl** client, int* message),
     (handle, server, client, message))
WRAP(Talks::yes, ldapResult(), ldap_install_tls, (LDAP * handle), (handle))
WRAP(Talks::yes, ldapResult(), ldap_sasl_bind,
     (LDAP * handle, const char* dn, const char* mechanism, berval* credentials,
      LDAPControl** server, LDAPControl** client, int* message),
     (handle, dn, mechanism, credentials, server, client, message))
// NOLINTNEXTLINE(readability-function-size): as many parameters as it has in ldap.h.
WRAP(Talks::yes, ldapResult(), ldap_search_ext,
     (LDAP * handle, const char* base, int scope, const char* filter, char** attributes,
      int typesOnly, LDAPControl** server, LDAPControl** client, timeval* time, int limit,
      int* message),
     (handle, base, scope, filter, attributes, typesOnly, server, client, time, limit, message))
WRAP(Talks::yes, ldapResult(), ldap_add_ext,
     (LDAP * handle, const char* dn, LDAPMod** attributes, LDAPControl** server,
      LDAPControl** client, int* message),
     (handle, dn, attributes, server, client, message))
WRAP(Talks::yes, ldapResult(), ldap_modify_ext,
     (LDAP * handle, const char* dn, LDAPMod** changes, LDAPControl** server, LDAPControl** client,
      int* message),
     (handle, dn, changes, server, client, message))
WRAP(Talks::yes, ldapResult(), ldap_rename,
     (LDAP * handle, const char* dn, const char* newRdn, const char* parent, int deleteOld,
      LDAPControl** server, LDAPControl** client, int* message),
     (handle, dn, newRdn, parent, deleteOld, server, client, message))
WRAP(Talks::yes, ldapResult(), ldap_delete_ext,
     (LDAP * handle, const char* dn, LDAPControl** server, LDAPControl** client, int* message),
     (handle, dn, server, client, message))
WRAP(Talks::no, ldapResult(), ldap_parse_result,
     (LDAP * handle, LDAPMessage* answer, int* result, char** matched, char** diagnostic,
      char*** referrals, LDAPControl*** controls, int release),
     (handle, answer, result, matched, diagnostic, referrals, controls, release))
WRAP(Talks::no, ldapResult(), ldap_create_page_control,
     (LDAP * handle, ber_int_t size, berval* cookie, int critical, LDAPControl** control),
     (handle, size, cookie, critical, control))
WRAP(Talks::no, ldapResult(), ldap_parse_pageresponse_control,
     (LDAP * handle, LDAPControl* control, ber_int_t* estimate, berval* cookie),
     (handle, control, estimate, cookie))
WRAP(Talks::no, ldapResult(), ldap_create_assertion_control,
     (LDAP * handle, char* filter, int critical, LDAPControl** control),
     (handle, filter, critical, control))
WRAP(Talks::no, ldapResult(), ldap_get_dn_ber,
     (LDAP * handle, LDAPMessage* entry, BerElement** place, berval* dn),
     (handle, entry, place, dn))
WRAP(Talks::no, ldapResult(), ldap_get_attribute_ber,
     (LDAP * handle, LDAPMessage* entry, BerElement* place, berval* name, berval** values),
     (handle, entry, place, name, values))
WRAP(Talks::no, ldapResult(), ldap_str2dn, (const char* text, LDAPDN* dn, unsigned flags),
     (text, dn, flags))
WRAP(Talks::no, LDAP_OPT_ERROR, ldap_set_option, (LDAP * handle, int option, const void* value),
     (handle, option, value))
WRAP(Talks::no, -1, ber_sockbuf_add_io, (Sockbuf * socket, Sockbuf_IO* layer, int level, void* own),
     (socket, layer, level, own))
WRAP(Talks::no, -1, ber_sockbuf_ctrl, (Sockbuf * socket, int option, void* value),
     (socket, option, value))
WRAP(Talks::no, errorWith(ENOMEM), setsockopt,
     (int socket, int level, int option, const void* value, socklen_t size),
     (socket, level, option, value, size))
WRAP(Talks::no, errorWith(ENOMEM), fstat64, (int file, struct stat64* status), (file, status))
WRAP(Talks::no, errorWith(ENOMEM), poll, (pollfd * awaited, nfds_t count, int time),
     (awaited, count, time))
#undef WRAP

ssize_t __real_read(int file, void* buffer, size_t size);
ssize_t __wrap_read(int file, void* buffer, size_t size) {
  return fails("read", Talks::no) ? errorWith(ENOMEM) : __real_read(file, buffer, size);
}

int __real_open64(const char* path, int flags, mode_t mode);
int __wrap_open64(const char* path, int flags, mode_t mode) {
  return fails("open64", Talks::no) ? errorWith(ENOMEM) : __real_open64(path, flags, mode);
}

int __real_fcntl64(int file, int command, long argument);
int __wrap_fcntl64(int file, int command, long argument) {
  return fails("fcntl64", Talks::no) ? errorWith(ENOMEM) : __real_fcntl64(file, command, argument);
}

int __real_ldap_result(LDAP* handle, int message, int all, timeval* time, LDAPMessage** answer);
int __wrap_ldap_result(LDAP* handle, int message, int all, timeval* time, LDAPMessage** answer) {
  if (!fails("ldap_result", Talks::yes))
    return __real_ldap_result(handle, message, all, time, answer);
  int result = ldapResult();
  __real_ldap_set_option(handle, LDAP_OPT_RESULT_CODE, &result);
  return -1;
}
}
// NOLINTEND(bugprone-reserved-identifier,bugprone-macro-parentheses)
