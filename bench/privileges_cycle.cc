// Reads and writes the privileges of many folders, one after the other.
//
//   bench_privileges FOLDER COUNT
//
// Makes COUNT folders below FOLDER/folders. Standard output is one line: the nanoseconds that
// writing the privileges of all of them took, each with an ACL of four entries, and those of
// reading them.
#include <sys/stat.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/guid.h"
#include "measuring.h"
#include "privileges/file_privs.h"
#include "support/privileges_world.h"

namespace {

constexpr std::uint32_t kEntries = 4;

std::vector<std::string> makeFolders(const std::string& parent, int count) {
  std::vector<std::string> paths;
  ::mkdir(parent.c_str(), 0755);
  for (int number = 0; number < count; ++number) {
    paths.push_back(parent + "/" + std::to_string(number));
    if (::mkdir(paths.back().c_str(), 0755) != 0) throw std::runtime_error("mkdir failed");
  }
  return paths;
}

paddock::Guid userGuid(std::uint32_t uid) {
  return paddock::computedGuid({paddock::PrincipalType::user, uid});
}

// Users 1 to 4, whom every system has.
paddock::Dictionary privileges() {
  paddock::Array entries;
  for (std::uint32_t uid = 1; uid <= kEntries; ++uid)
    entries.emplace_back(paddock::Dictionary{{"guid", guidText(userGuid(uid))},
                                             {"allowPermission", "YES"},
                                             {"bitmap", 2 + 8},
                                             {"flags", 0}});
  return {{"acl", entries}};
}

template <typename Step>
long long timeOfEach(const std::vector<std::string>& paths, Step step) {
  return bench::timeOf([&] {
    for (const std::string& path : paths) step(path);
  });
}

void write(const std::string& path) {
  if (paddock::write_file_privs(path, privileges()) != 0) throw std::runtime_error("write failed");
}

void read(const std::string& path) {
  paddock::Dictionary found;
  paddock::read_file_privs(path, found);
  const paddock::Array* entries = found.array("acl");
  if (entries == nullptr || entries->size() != kEntries || found.string("owner") == nullptr)
    throw std::runtime_error("read failed");
}

void measure(const std::string& folder, int count) {
  const paddock::PrivilegesWorld world(folder);
  const paddock::ServicesGuard guard(world.services);
  const auto paths = makeFolders(folder + "/folders", count);
  const long long writing = timeOfEach(paths, write);
  const long long reading = timeOfEach(paths, read);
  std::cout << writing << ' ' << reading << '\n';
}

}  // namespace

int main(int count, char** arguments) {
  const int folders = count == 3 ? bench::numberOf(arguments[2]) : 0;
  if (folders <= 0) {
    std::cerr << "usage: bench_privileges FOLDER COUNT\n";
    return 2;
  }
  try {
    measure(arguments[1], folders);
  } catch (const std::exception& error) {
    std::cerr << "bench_privileges: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
