// Benchmarks reading an ACL of 128 entries whose principals all have records among many others. The
// principals differ each time, so that no answer comes from a cache.
//
//   bench_acl FOLDER RECORDS RUNS
//
// Makes a directory of RECORDS users in FOLDER. A line of standard output is the nanoseconds that
// one `get_acl` took and those of one search for a GUID by itself.
#include <iostream>
#include <stdexcept>
#include <string>

#include "base/guid.h"
#include "measuring.h"
#include "platform/acl_list.h"
#include "platform/directory.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/services.h"
#include "privileges/get_acl.h"

namespace {

namespace schema = paddock::schema;

constexpr int kEntries = 128;

paddock::Guid guidOf(int number) {
  paddock::Guid guid{{0xBE, 0x9C, 0x40}};
  guid.bytes[14] = static_cast<std::uint8_t>(number / 256);
  guid.bytes[15] = static_cast<std::uint8_t>(number % 256);
  return guid;
}

// The ACL of the path N is that of the run N.
class ManyAcls : public paddock::acl::AclCalls {
 public:
  explicit ManyAcls(int records) : records_(records) {}

  paddock::acl::List* acl_get_file(const std::string& path, int) override {
    paddock::acl::List* list = acl_init(kEntries);
    for (int number = 0; number < kEntries; ++number) {
      paddock::acl::Entry* entry = nullptr;
      acl_create_entry(list, entry);
      acl_set_tag_type(entry, paddock::acl::kExtendedAllow);
      acl_set_qualifier(entry, guidOf(principal(2 * std::stoi(path), number)));
    }
    return list;
  }
  int acl_set_file(const std::string&, int, paddock::acl::List*) override { return -1; }

  // One of the entries' principals, which are spread over the records: each step of the offset
  // makes all of them others.
  int principal(int offset, int entry) const {
    return (entry * (records_ / kEntries) + offset) % records_;
  }

 private:
  int records_;
};

void addUsers(paddock::DirectoryService& directory, int records) {
  const auto node = directory.openLocal()->localNode();
  for (int number = 0; number < records; ++number) {
    const auto text = std::to_string(number);
    node->newRecord("user" + text, schema::kUsers)
        ->setAttributesAndValues({{schema::kGeneratedUID, paddock::guidText(guidOf(number))},
                                  {schema::kUniqueID, std::to_string(100'000 + number)},
                                  {schema::kRealName, "User " + text}});
  }
}

void readAcl(int run) {
  paddock::Array entries;
  if (paddock::get_acl(std::to_string(run), entries) != 0 || entries.size() != kEntries ||
      entries.back().dictionary()->integer("isUser") != 0)
    throw std::runtime_error("the ACL cannot be read");
}

void search(int number) {
  const auto found = paddock::services().directory->openLocal()->searchNode()->findRecordsOfTypes(
      {schema::kUsers, schema::kGroups}, schema::kGeneratedUID, paddock::guidText(guidOf(number)),
      paddock::MatchType::caseInsensitiveExact);
  if (found.size() != 1) throw std::runtime_error("the user cannot be found");
}

void measure(const std::string& folder, int records, int runs) {
  paddock::LinuxDirectoryService directory(
      {.databasePath = folder + "/directory.sqlite", .pam = std::nullopt});
  addUsers(directory, records);
  ManyAcls acl(records);
  paddock::Services services;
  services.directory = &directory;
  services.acl = &acl;
  const paddock::ServicesGuard guard(services);
  for (int run = 0; run < runs; ++run) {
    const int number = acl.principal(2 * run + 1, run % kEntries);
    std::cout << bench::timeOf([&] { readAcl(run); }) << ' '
              << bench::timeOf([&] { search(number); }) << '\n';
  }
}

}  // namespace

int main(int count, char** arguments) {
  const int records = count == 4 ? bench::numberOf(arguments[2]) : 0;
  const int runs = count == 4 ? bench::numberOf(arguments[3]) : 0;
  if (records < kEntries || records > 65'536 || runs <= 0) {
    std::cerr << "usage: bench_acl FOLDER RECORDS RUNS\n";
    return 2;
  }
  try {
    measure(arguments[1], records, runs);
  } catch (const std::exception& error) {
    std::cerr << "bench_acl: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
