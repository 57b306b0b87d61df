// Benchmarks reading an exports file, changing one export in it and writing it.
//
//   bench_exports FILE PATH RUNS
//
// A line of standard output is the nanoseconds that one `readFile` took, those of the change and
// those of the `writeFile` behind it. Each run gives the export of PATH other options, because a
// file that would stay as it is is not written.
#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "exports/nfs_export_parser.h"
#include "exports/nfs_export_record.h"
#include "measuring.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/services.h"

namespace {

using Clock = std::chrono::steady_clock;

paddock::NFSExportRecordPtr changedExport(const char* path, int run) {
  const bool even = run % 2 == 0;
  auto record = std::make_shared<paddock::NFSExportRecord>();
  record->setPath(path);
  record->setClients({{"10.0.0.0/8", {even ? "ro" : "rw", "sync", "no_subtree_check"}}});
  return record;
}

// Does what `step` says, which must succeed, and returns the nanoseconds that it took.
template <typename Step>
long long timeOf(Step step, const char* what) {
  const auto began = Clock::now();
  if (!step()) throw std::runtime_error(std::string(what) + " failed");
  return std::chrono::nanoseconds(Clock::now() - began).count();
}

void cycle(const char* file, const char* path, int runs) {
  paddock::LinuxTextFiles textFiles;
  paddock::Services services;
  services.textFiles = &textFiles;
  const paddock::ServicesGuard guard(services);
  const auto parser = paddock::NFSExportParser::initWithFile(file);
  for (int run = 0; run < runs; ++run) {
    const auto read = timeOf([&] { return parser->readFile(); }, "readFile");
    const auto change = timeOf(
        [&] {
          parser->addOrReplaceExport(changedExport(path, run));
          return true;
        },
        "addOrReplaceExport");
    const auto write = timeOf([&] { return parser->writeFile(); }, "writeFile");
    std::cout << read << ' ' << change << ' ' << write << '\n';
  }
}

}  // namespace

int main(int count, char** arguments) {
  const int runs = count == 4 ? bench::numberOf(arguments[3]) : 0;
  if (runs <= 0) {
    std::cerr << "usage: bench_exports FILE PATH RUNS\n";
    return 2;
  }
  try {
    cycle(arguments[1], arguments[2], runs);
  } catch (const std::exception& error) {
    std::cerr << "bench_exports: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
