// One connection to a directory server, over libldap. Not thread-safe; different connections may be
// used concurrently.
//
// Every operation throws LdapError: what the server answered, LDAP_TIMEOUT when it did not in time,
// LDAP_RESULTS_TOO_LARGE when it sends more than the allowance has; and LdapConnectionLost when the
// connection broke. After this, or any other error that is not a response of the server, a
// connection is no longer usable.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/linux/ldap/ldap_allowance.h"
#include "platform/linux/ldap/ldap_options.h"

struct ldap;
struct ldapcontrol;
struct ldapmsg;

namespace paddock {

struct LdapEntry {
  std::string dn;
  // By the attribute's name in lower case, without options.
  std::unordered_map<std::string, std::vector<std::string>> attributes;

  // Empty when the entry does not have the attribute; `attribute` in any letter case.
  const std::vector<std::string>& values(std::string_view attribute) const;
  std::string first(std::string_view attribute) const;
};

struct LdapChange {
  enum class Kind { add, remove, replace };
  Kind kind = Kind::add;
  std::string attribute;
  std::vector<std::string> values;  // none: of `remove`, all of them
};

enum class LdapScope { base, subtree };

struct LdapQuery {
  std::string base;
  LdapScope scope = LdapScope::subtree;
  std::string filter = "(objectClass=*)";
  // None: all but the operational ones.
  std::vector<std::string> attributes;
};

class LdapConnection {
 public:
  // Connects, and encrypts the connection where the options require it. The connection is
  // anonymous. Precondition: there is an allowance.
  LdapConnection(const LdapOptions& options, std::shared_ptr<LdapAllowance> allowance);
  LdapConnection(const LdapConnection&) = delete;
  LdapConnection& operator=(const LdapConnection&) = delete;
  ~LdapConnection();

  bool isUsable() const { return usable_; }

  // Charges later operations to this allowance; null: idle, no operations allowed.
  void count(std::shared_ptr<LdapAllowance> allowance);

  // A simple bind. Precondition: neither is empty.
  void bind(const std::string& dn, const std::string& password);

  // Every entry that matches: in pages where the server knows them; a limit that it hits is an
  // error, and so is a page without an entry behind which there are more. References to other
  // servers are not followed.
  std::vector<LdapEntry> search(const LdapQuery& query);
  // The same for several queries, which are under way together; a query of the scope `base` whose
  // entry is not there has an empty answer.
  std::vector<std::vector<LdapEntry>> searchEach(const std::vector<LdapQuery>& queries);

  // `attributes` are all of kind `add`.
  void add(const std::string& dn, const std::vector<LdapChange>& attributes);
  // All of the changes or none.
  void modify(const std::string& dn, const std::vector<LdapChange>& changes);
  // Gives the entry another first component, in the place where it is.
  void rename(const std::string& dn, const std::string& newRdn, bool deleteOldRdn);
  // Deletes the entry if `assertion` (a filter) holds for it; servers that cannot assert do not
  // ask.
  void remove(const std::string& dn, const std::string& assertion);

 private:
  class Callback;
  struct Page;

  void connect();
  void startTls();
  void setOptions();
  void setTlsOptions();
  void setOption(int option, const void* value);
  [[noreturn]] void failConnecting(int result, int number);
  // With a cookie, one page is asked for.
  int send(const LdapQuery& query, const std::string* cookie);
  // Receives the entries of a page; its cookie is empty when there are no more.
  Page receive(int message, const LdapQuery& query);
  ldapmsg* await(int message, const std::string& what);
  // Awaits the answer of a request whose sending gave `sent`; throws what it says.
  void finish(int sent, int message, const std::string& what);
  int resultOf(int sent, int message, const std::string& what, std::string& diagnostic);
  void requireSent(int sent, const std::string& what);
  // How long the next step may take.
  std::chrono::milliseconds stepTime() const;
  // Throws when that is why nothing went on: the allowance is spent or over.
  void requireAllowance(const std::string& what);
  // Throws for a result of the library itself.
  [[noreturn]] void fail(int result, const std::string& what);
  std::string diagnosticMessage();
  std::string what(std::string_view operation, std::string_view dn) const;

  const LdapOptions options_;
  std::shared_ptr<LdapAllowance> allowance_;
  std::unique_ptr<Callback> callback_;
  ldap* ldap_ = nullptr;
  bool usable_ = false;
};

}  // namespace paddock
