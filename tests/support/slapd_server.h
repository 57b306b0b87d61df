// A directory server of a test's own: Debian's slapd in a folder of its own, on a Unix socket and,
// on request, a free port of the loopback interface. It ends, by its own pid, with the object.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/ldap/ldap_options.h"
#include "support/temporary_folder.h"

namespace paddock {

// Why slapd cannot be run here, for GTEST_SKIP; empty when it can.
std::string whyNoSlapd();

struct SlapdOptions {
  bool schema = true;  // whether it has the project's schema
  bool tcp = false;    // whether it listens on a port too; the port is of the options' choosing
  bool ldaps = false;  // whether that port is TLS from the start
  std::string certificate = {};  // files for TLS; empty: none
  std::string key = {};
  std::string global = {};  // lines of slapd.conf(5): before the database, and of the database
  std::string database = {};
  bool statistics = false;  // whether its log has every operation, for `searches`
  bool populate = true;     // whether it starts with the entries below
};

// Entries: dc=example; ou=people, ou=groups and ou=paddock below it; cn=service, whose password is
// "service's" and who may write. Anybody may read, everything but passwords; who has the
// employeeType "writer" may write.
class SlapdServer {
 public:
  // Starts it; throws std::runtime_error with its log on failure.
  explicit SlapdServer(SlapdOptions options = {});
  SlapdServer(const SlapdServer&) = delete;
  SlapdServer& operator=(const SlapdServer&) = delete;
  ~SlapdServer();

  static constexpr const char* kBase = "dc=example";
  static constexpr const char* kRecords = "ou=paddock,dc=example";
  static constexpr const char* kPeople = "ou=people,dc=example";
  static constexpr const char* kGroups = "ou=groups,dc=example";
  static constexpr const char* kService = "cn=service,dc=example";
  static constexpr const char* kServicePassword = "service's";
  static constexpr const char* kRoot = "cn=root,dc=example";
  static constexpr const char* kRootPassword = "root's";

  std::string ldapiUri() const;
  std::string tcpUri() const;  // ldap://127.0.0.1:PORT
  int port() const { return port_; }
  const TestFolder& folder() const { return folder_; }
  pid_t pid() const { return pid_; }

  // As a node: the Unix socket, and cn=service.
  LdapOptions nodeOptions(const std::string& name = "contract") const;

  void start();
  // With SIGTERM, and waits for its end; with SIGKILL.
  void stop();
  void kill();
  // Suspends it without ending it, and resumes it.
  void freeze();
  void thaw();
  // Restarts it with rules that deny searching and reading to everyone.
  void refuseEverybody();

  // Adds entries, in LDIF, as the root of the database. Throws what ldapadd says.
  void add(const std::string& ldif);
  // The same for changes (ldapmodify).
  void modify(const std::string& ldif);
  // What ldapsearch prints (-LLL) for these words, as the root of the database.
  std::string search(const std::vector<std::string>& words) const;

  // The filters of all searches that it was asked for, in their order.
  std::vector<std::string> searches() const;
  // How many connections it was asked something on.
  int connections() const;

  // An entry uid=NAME below ou=people: an inetOrgPerson.
  void addPerson(const std::string& name, const std::string& password, bool mayWrite);

 private:
  void configure();
  void waitUntilItListens();
  std::string run(const std::vector<std::string>& words, const std::string& input) const;
  std::vector<std::string> linesWith(const std::string& text) const;

  SlapdOptions options_;
  TestFolder folder_;
  int port_ = 0;
  pid_t pid_ = -1;
  bool refusing_ = false;
};

// A port of the loopback interface with no listener at the moment.
int freeLoopbackPort();

}  // namespace paddock
