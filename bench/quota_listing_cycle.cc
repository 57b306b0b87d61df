// Lists the users of a quota file, again and again.
//
//   bench_quotas FOLDER USED          makes the largest table that a volume gets in FOLDER, with
//                                     USED entries and without a hole
//   bench_quotas FOLDER USED RUNS     lists it RUNS times: a line for each, the nanoseconds that
//                                     `read_quota_entries` took, and how many KiB more than before
//                                     the first the process has held at most
#include <charconv>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/accounts.h"
#include "platform/linux/files/linux_volume_info.h"
#include "platform/services.h"
#include "volumes/quota_listing.h"

namespace {

constexpr std::uint32_t kSlots = 2'097'152;
constexpr std::uint32_t kFirstId = 100'000;

// Users without a name, so that nothing but the listing is measured.
class NobodyHasAName : public paddock::Accounts {
 public:
  int getpwnam(const std::string&, std::uint32_t&) override { return ENOENT; }
  int getgrnam(const std::string&, std::uint32_t&) override { return ENOENT; }
  int getgrnam_r(const std::string&, std::size_t, std::uint32_t& gid) override {
    gid = 0;
    return ENOENT;
  }
  int getpwuid(std::uint32_t, std::string&) override { return ENOENT; }
  int getgrgid(std::uint32_t, std::string&) override { return ENOENT; }
};

void put(std::vector<char>& table, std::uint64_t offset, const paddock::QuotaSlot& slot) {
  std::memcpy(table.data() + offset, slot.data(), slot.size());
}

std::vector<char> tableWith(std::uint32_t used) {
  std::vector<char> table(paddock::quotaFileSize(kSlots));
  paddock::QuotaFileHeader header;
  header.magic = paddock::quotamagic[paddock::kUserQuota];
  header.maxentries = kSlots;
  put(table, 0, paddock::encodeQuotaHeader(header));
  std::vector<bool> taken(kSlots);
  for (std::uint32_t id = kFirstId; id < kFirstId + used; ++id) {
    paddock::QuotaProbe probe(id, kSlots);
    while (!probe.atEnd() && taken[probe.slot()]) probe.next();
    taken[probe.slot()] = true;
    paddock::QuotaEntry entry;
    entry.id = id;
    entry.usedBytes = id;
    put(table, paddock::quotaSlotOffset(probe.slot()), paddock::encodeQuotaEntry(entry));
  }
  return table;
}

void makeFiles(const std::string& folder, std::uint32_t used) {
  const std::vector<char> table = tableWith(used);
  const auto path = [&](const char* name) {
    return paddock::quota_file_path(folder, name, paddock::kUserQuota);
  };
  std::ofstream(path(paddock::kQuotaOperationsName)).flush();
  std::ofstream file(path(paddock::qfname), std::ios::binary);
  file.write(table.data(), static_cast<std::streamsize>(table.size()));
  if (!file.flush()) throw std::runtime_error("the quota file cannot be written");
}

// In KiB. Not getrusage(2)'s, which counts what ran in the process before this program.
long peak() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long kibibytes = 0;
    if (word == "VmHWM:" && status >> kibibytes) return kibibytes;
  }
  throw std::runtime_error("/proc/self/status has no VmHWM");
}

void list(const std::string& folder, std::uint32_t used, int runs) {
  paddock::LinuxVolumeInfo volumes({{}, true});
  NobodyHasAName accounts;
  paddock::Services services;
  services.volumeInfo = &volumes;
  services.accounts = &accounts;
  const paddock::ServicesGuard guard(services);
  const long before = peak();
  for (int run = 0; run < runs; ++run) {
    const auto began = std::chrono::steady_clock::now();
    std::optional<paddock::Array> entries;
    const auto status = paddock::read_quota_entries(folder, paddock::kUserQuota, entries);
    const std::chrono::nanoseconds took = std::chrono::steady_clock::now() - began;
    if (status != 0 || entries->size() != used) throw std::runtime_error("listing failed");
    std::cout << took.count() << ' ' << peak() - before << '\n';
  }
}

bool parse(const char* text, std::uint32_t& number) {
  const char* end = text + std::strlen(text);
  return std::from_chars(text, end, number).ptr == end;
}

}  // namespace

int main(int count, char** arguments) {
  std::uint32_t used = 0;
  std::uint32_t runs = 0;
  const bool understood = (count == 3 || count == 4) && parse(arguments[2], used) &&
                          used < kSlots && (count == 3 || parse(arguments[3], runs));
  if (!understood) {
    std::cerr << "usage: bench_quotas FOLDER USED [RUNS]   (without RUNS: make the file)\n";
    return 2;
  }
  try {
    if (count == 3) {
      makeFiles(arguments[1], used);
    } else {
      list(arguments[1], used, static_cast<int>(runs));
    }
  } catch (const std::exception& error) {
    std::cerr << "bench_quotas: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
