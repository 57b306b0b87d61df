#include "quotascan/volume_scan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "base/system_call.h"
#include "base/worker_threads.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/files/path_walk.h"
#include "platform/linux/privileges/object_status.h"
#include "quotascan/quota_table.h"
#include "quotascan/quotascan_failure.h"
#include "quotascan/quotascan_walker.h"
#include "quotascan/replacement.h"

namespace paddock::quotascan {

namespace {

constexpr unsigned kFewestThreads = 2;
constexpr unsigned kMostThreads = 12;
// Of a thread's descriptors: a folder being queued, and one being entered.
constexpr unsigned kPassingDescriptors = 2;

unsigned threadsOf(const WalkOptions& options) {
  if (options.threads != 0) return options.threads;
  return std::clamp(std::thread::hardware_concurrency(), kFewestThreads, kMostThreads);
}

FileDescriptor duplicateOf(int folder) {
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }, &descriptor);
  if (error != 0) throw failureOf("open", pathOf(folder), error);
  return FileDescriptor(descriptor);
}

void runThreads(SharedWalk& shared, const std::vector<std::unique_ptr<Walker>>& walkers) {
  std::vector<std::function<void()>> workers;
  workers.reserve(walkers.size());
  for (const auto& walker : walkers) workers.emplace_back([&walker] { walker->run(); });
  runWorkers(workers, [&shared] { shared.queue.stop(); });
}

void walkRound(int root, const WalkOptions& options, unsigned threads, SharedWalk& shared,
               Counts& counts) {
  std::vector<std::unique_ptr<Walker>> walkers;
  for (unsigned number = 0; number < threads; ++number) {
    walkers.push_back(
        std::make_unique<Walker>(shared, options.descriptors / threads - kPassingDescriptors));
  }
  if (shared.rounds.isFirst()) walkers.front()->count(shared.root);
  const bool isCounted = !shared.rounds.isFirst();
  shared.queue.give({duplicateOf(root), shared.root.changed, isCounted, false, {}, {}});
  runThreads(shared, walkers);
  for (const auto& walker : walkers) counts.add(walker->counts());
}

}  // namespace

Counts countUsage(int root, const WalkOptions& options, std::atomic<std::uint64_t>& objects) {
  const unsigned threads = threadsOf(options);
  const std::atomic<bool> neverStops = false;
  LinkedInodes linked;
  WalkRounds rounds(options.pause, options.knownFolders);
  Counts counts;
  do {
    SharedWalk shared(threads, rounds, linked, objects, options.ignored);
    // Before the round begins, so that no change is between the two.
    if (const int error = statusOf(root, shared.root); error != 0) {
      throw failureOf("read", pathOf(root), error);
    }
    rounds.begin();
    walkRound(root, options, threads, shared, counts);
  } while (rounds.goOn(neverStops));
  objects = counts.objects;
  return counts;
}

namespace {

// Longer than a run that asks the kernel takes.
constexpr std::chrono::milliseconds kPatience{3000};

constexpr QuotaType kTypes[] = {kUserQuota, kGroupQuota};

// A quota file of the volume being brought up to date.
struct Subject {
  FileOutcome outcome;
  std::optional<QuotaFile> file;
  std::optional<Findings> findings;

  bool isLeft() const { return outcome.failure.empty(); }
};

FileDescriptor openVolume(const std::string& path) {
  FileDescriptor held;
  std::optional<RefusedLink> refused;
  int error = holdObject(path, PathUse::changing, held, &refused);
  if (refused) throw Failure("cannot open " + path + ": " + textWithOwner(*refused));
  int descriptor = -1;
  if (error == 0) {
    error = errnoOf([&] { return ::openat(held.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); },
                    &descriptor);
  }
  if (error != 0) throw failureOf("open", path, error);
  FileDescriptor volume(descriptor);
  ObjectStatus status;
  const int unreadable = statusOf(descriptor, status);
  if (unreadable != 0) throw failureOf("read", path, unreadable);
  if (!status.isMountRoot) {
    throw Failure(path + " is not where a volume is mounted; give the volume's highest folder");
  }
  return volume;
}

// Executes a step for one file; the others continue when it fails.
template <typename Step>
void attempt(FileOutcome& outcome, Step step) {
  try {
    step();
  } catch (const Failure& failure) {
    outcome.failure = failure.what();
  }
}

std::vector<Subject> openFiles(int volume, const std::string& path,
                               const QuotaFile::Waiting& waiting) {
  std::vector<Subject> subjects;
  for (const QuotaType type : kTypes) {
    Subject subject;
    subject.outcome.type = type;
    attempt(subject.outcome, [&] { subject.file = QuotaFile::open(volume, path, type, waiting); });
    if (subject.file || !subject.isLeft()) subjects.push_back(std::move(subject));
  }
  return subjects;
}

std::set<std::string> namesOfFiles() {
  std::set<std::string> names;
  for (const QuotaType type : kTypes) {
    names.insert(quotaFileName(type));
    names.insert(replacementName(quotaFileName(type)));
  }
  return names;
}

Findings findingsOf(const UsageTable& usages) {
  Findings findings;
  for (const auto& [id, usage] : usages.map()) {
    if (id == 0) continue;
    QuotaEntry entry;
    entry.id = id;
    entry.usedBytes = usage.bytes;
    entry.usedFiles = static_cast<std::uint32_t>(std::min<std::uint64_t>(usage.files, UINT32_MAX));
    findings.entries.push_back(entry);
  }
  std::sort(findings.entries.begin(), findings.entries.end(),
            [](const QuotaEntry& left, const QuotaEntry& right) { return left.id < right.id; });
  return findings;
}

void askKernel(int volume, const std::string& path, std::vector<Subject>& subjects) {
  for (Subject& subject : subjects) {
    if (!subject.isLeft()) continue;
    attempt(subject.outcome, [&] {
      subject.findings = kernelFindings(kernelQuotasOf(volume, subject.outcome.type), path);
    });
    subject.outcome.byKernel = subject.findings.has_value();
  }
}

void walk(int volume, std::vector<Subject>& subjects, ScanEvents& events, ScanOutcome& outcome) {
  const auto needsWalk = [](const Subject& subject) {
    return subject.isLeft() && !subject.findings;
  };
  if (std::none_of(subjects.begin(), subjects.end(), needsWalk)) return;
  WalkOptions options;
  options.ignored = namesOfFiles();
  events.walking();
  const Counts counts = countUsage(volume, options, events.objects);
  events.walked();
  for (Subject& subject : subjects) {
    if (!needsWalk(subject)) continue;
    subject.findings =
        findingsOf(subject.outcome.type == kUserQuota ? counts.users : counts.groups);
  }
  outcome.objects = counts.objects;
  outcome.unsettled = counts.unsettled;
}

void rewrite(int volume, Subject& subject) {
  QuotaFile& file = *subject.file;
  TableSummary& table = subject.outcome.table;
  // Read as late as possible, so that limits set during the walk are kept.
  file.checkUnchanged(volume);
  table = summarizeTable(file.descriptor(), file.header(), *subject.findings, file.path());
  if (!table.isChanged) return;
  Replacement replacement(volume, file);
  rewriteTable(file.descriptor(), file.header(), *subject.findings, table, replacement.descriptor(),
               file.path(), replacement.path());
  file.checkUnchanged(volume);
  replacement.putInPlace();
}

}  // namespace

ScanOutcome scanVolume(const std::string& path, ScanEvents& events, CountedBy countedBy) {
  const FileDescriptor volume = openVolume(path);
  QuotaFile::Waiting waiting{events.waiting};
  if (countedBy == CountedBy::kernelAlone) waiting.atMost = kPatience;
  std::vector<Subject> subjects = openFiles(volume.get(), path, waiting);
  if (subjects.empty()) {
    throw Failure(path + " has no " + quotaFileName(kUserQuota) +
                  ", so there is nothing to bring up to date; \"keelhouse quota on " + path +
                  "\" makes one");
  }
  askKernel(volume.get(), path, subjects);
  ScanOutcome outcome;
  if (countedBy == CountedBy::kernelAlone) {
    std::erase_if(subjects,
                  [](const Subject& subject) { return subject.isLeft() && !subject.findings; });
  } else {
    walk(volume.get(), subjects, events, outcome);
  }
  for (Subject& subject : subjects) {
    if (subject.isLeft()) attempt(subject.outcome, [&] { rewrite(volume.get(), subject); });
    outcome.files.push_back(subject.outcome);
  }
  return outcome;
}

}  // namespace paddock::quotascan
