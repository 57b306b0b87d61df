// Benchmarks lookups of records on a directory server, through a node and with libldap alone.
//
//   bench_ldap entries RECORDS           the records, in LDIF, below ou=paddock,dc=example
//   bench_ldap lookups URI RECORDS RUNS  a line of nanoseconds per lookup: by a node, by libldap
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kept_connection.h"
#include "measuring.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_node.h"
#include "platform/linux/ldap/ldap_record_format.h"
#include "platform/linux/ldap/ldap_text.h"

namespace {

constexpr const char* kType = "dsRecTypeStandard:SharePoints";
constexpr const char* kPath = "dsAttrTypeNative:directory_path";
constexpr const char* kRecords = "ou=paddock,dc=example";

std::string nameOf(int number) { return "share" + std::to_string(number); }
std::string pathOf(int number) { return "/srv/shares/" + nameOf(number); }

void printEntry(int number) {
  paddock::LdapRecordState record;
  record.type = kType;
  record.revision = std::to_string(number);
  record.attributes = {{0, paddock::schema::kRecordName, {nameOf(number)}},
                       {1, kPath, {pathOf(number)}},
                       {2, "dsAttrTypeNative:vsp_name", {nameOf(number)}},
                       {3, "dsAttrTypeNative:smb_name", {nameOf(number)}},
                       {4, "dsAttrTypeNative:vsp_shared", {"1"}}};
  std::cout << "dn: " << paddock::recordRdn(kType, nameOf(number)) << ',' << kRecords
            << "\npaddockKey: " << paddock::recordKey(kType, nameOf(number))
            << "\npaddockCreated: " << number + 1 << '\n';
  for (const auto& [attribute, values] : paddock::entryOf(record))
    for (const std::string& value : values) std::cout << attribute << ": " << value << '\n';
  std::cout << '\n';
}

std::string filterOf(const std::string& path) {
  return paddock::allOf({paddock::recordFilter(kPath, path), paddock::equals("paddockType", kType),
                         "(objectClass=paddockRecord)"});
}

void lookUp(const std::shared_ptr<paddock::LdapServer>& server, const std::string& path) {
  const auto found = paddock::makeLdapNode(server)->findRecordsOfTypes(
      {kType}, kPath, path, paddock::MatchType::caseInsensitiveExact);
  if (found.size() != 1) throw std::runtime_error("the node does not find " + path);
}

void measure(const std::string& uri, int records, int runs) {
  paddock::LdapOptions options;
  options.name = "bench";
  options.uri = uri;
  options.base = "dc=example";
  options.recordsBase = kRecords;
  const auto server = std::make_shared<paddock::LdapServer>(options);
  KeptConnection alone(uri, kRecords, paddock::recordEntryAttributes());
  constexpr int kStep = 7919;  // a prime, so that every lookup is for another record
  for (int run = 0; run < runs; ++run) {
    const std::string path = pathOf(static_cast<int>(1LL * run * kStep % records));
    const auto theirs = [&] { alone.lookUp(filterOf(path)); };
    const auto ours = [&] { lookUp(server, path); };
    bench::printInTurn(run, ours, theirs);
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::string command = count > 1 ? arguments[1] : "";
  const int place = command == "lookups" ? 3 : 2;
  const int records = count > place ? bench::numberOf(arguments[place]) : 0;
  try {
    if (command == "entries" && count == 3 && records > 0) {
      for (int number = 0; number < records; ++number) printEntry(number);
      return 0;
    }
    if (command == "lookups" && count == 5 && records > 0) {
      measure(arguments[2], records, bench::numberOf(arguments[4]));
      return 0;
    }
  } catch (const std::exception& error) {
    std::cerr << "bench_ldap: " << error.what() << '\n';
    return 1;
  }
  std::cerr << "usage: bench_ldap entries RECORDS | lookups URI RECORDS RUNS\n";
  return 2;
}
