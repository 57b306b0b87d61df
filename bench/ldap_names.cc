// Benchmarks reading ACLs of 128 entries whose principals are users of a directory server, and as
// many lookups with libldap alone. The users differ each time, so that no answer comes from a
// cache.
//
//   bench_ldap_names entries USERS                 the users, in LDIF, below ou=paddock,dc=example
//   bench_ldap_names lists URI FOLDER LISTS RUNS   a line of nanoseconds per list: by the service,
//                                                  by libldap
//
// The directory "/Local" is in FOLDER, the folders with the ACLs are made below LISTS.
#include <sys/stat.h>

#include <iostream>
#include <stdexcept>
#include <string>

#include "kept_connection.h"
#include "measuring.h"
#include "platform/linux/ldap/ldap_text.h"
#include "privileges/get_acl.h"
#include "privileges/set_acl.h"
#include "support/privileges_world.h"

namespace {

constexpr int kEntries = 128;
// Ids that no account of the host has.
constexpr int kFirstUid = 2'011'000'000;
constexpr const char* kBase = "dc=example";

void printUser(int number) {
  const std::string text = std::to_string(number);
  std::cout << "dn: uid=user" << text << ",ou=paddock,dc=example\nobjectClass: inetOrgPerson\n"
            << "objectClass: posixAccount\nuid: user" << text << "\ncn: User " << text
            << "\nsn: x\nuidNumber: " << kFirstUid + number
            << "\ngidNumber: 2012000000\nhomeDirectory: /home/user" << text << "\n\n";
}

int uidOf(int run, int entry) { return kFirstUid + run * kEntries + entry; }

void writeList(const std::string& path, int run) {
  paddock::Array entries;
  for (int entry = 0; entry < kEntries; ++entry)
    entries.emplace_back(paddock::Dictionary{{"isUser", 0},
                                             {"uniqueID", uidOf(run, entry)},
                                             {"allowPermission", "YES"},
                                             {"bitmap", 2},
                                             {"flags", 0}});
  if (::mkdir(path.c_str(), 0755) != 0 || paddock::set_acl(path, entries) != 0)
    throw std::runtime_error("the ACL of " + path + " cannot be written");
}

void readList(const std::string& path) {
  paddock::Array entries;
  if (paddock::get_acl(path, entries) != 0 || entries.size() != kEntries ||
      !entries.back().dictionary()->string("displayName")->starts_with("User "))
    throw std::runtime_error("the ACL of " + path + " cannot be read");
}

void lookUpAll(KeptConnection& alone, int run) {
  for (int entry = 0; entry < kEntries; ++entry)
    alone.lookUp(paddock::allOf({paddock::equals("uidNumber", std::to_string(uidOf(run, entry))),
                                 "(|(objectClass=posixAccount)(objectClass=inetOrgPerson))"}));
}

void measure(const std::string& uri, const std::string& folder, const std::string& lists,
             int runs) {
  paddock::LdapOptions options;
  options.name = "bench";
  options.uri = uri;
  options.base = kBase;
  const auto pathOf = [&lists](int run) { return lists + "/" + std::to_string(run); };
  {
    const paddock::PrivilegesWorld other(folder, {options});
    const paddock::ServicesGuard guard(other.services);
    for (int run = 0; run < runs; ++run) writeList(pathOf(run), run);
  }
  const paddock::PrivilegesWorld world(folder, {options});
  const paddock::ServicesGuard guard(world.services);
  KeptConnection alone(uri, kBase,
                       {"objectClass", "createTimestamp", "entryUUID", "uid", "cn", "uidNumber",
                        "gidNumber", "homeDirectory", "loginShell"});
  for (int run = 0; run < runs; ++run) {
    const auto ours = [&] { readList(pathOf(run)); };
    const auto theirs = [&] { lookUpAll(alone, run); };
    bench::printInTurn(run, ours, theirs);
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::string command = count > 1 ? arguments[1] : "";
  try {
    if (command == "entries" && count == 3) {
      for (int number = 0; number < bench::numberOf(arguments[2]); ++number) printUser(number);
      return 0;
    }
    if (command == "lists" && count == 6) {
      measure(arguments[2], arguments[3], arguments[4], bench::numberOf(arguments[5]));
      return 0;
    }
  } catch (const std::exception& error) {
    std::cerr << "bench_ldap_names: " << error.what() << '\n';
    return 1;
  }
  std::cerr << "usage: bench_ldap_names entries USERS | lists URI FOLDER LISTS RUNS\n";
  return 2;
}
