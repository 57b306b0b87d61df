#include "quotascan/scan_report.h"

#include <chrono>

namespace paddock::quotascan {

namespace {

constexpr std::size_t kGroup = 3;

std::string joined(const std::vector<std::string>& texts, const std::string& between) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : between) + text;
  return all;
}

std::string phraseOf(const FileOutcome& file) {
  const std::string noun = file.type == kUserQuota ? "user" : "group";
  std::string phrase =
      grouped(file.table.entries) + " " + noun + (file.table.entries == 1 ? "" : "s");
  if (file.table.isGrown) phrase += " (table grown to " + grouped(file.table.slots) + " slots)";
  if (file.byKernel) phrase += " (as the kernel counts them)";
  return phrase;
}

std::string memberOf(const FileOutcome& file) {
  const std::string noun = file.type == kUserQuota ? "users" : "groups";
  return "\"" + noun + "\": {\"entries\": " + std::to_string(file.table.entries) +
         ", \"slots\": " + std::to_string(file.table.slots) +
         ", \"grown\": " + (file.table.isGrown ? "true" : "false") + ", \"countedBy\": \"" +
         (file.byKernel ? "kernel" : "walk") + "\"}";
}

}  // namespace

std::string grouped(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > kGroup;) {
    at -= kGroup;
    text.insert(at, 1, ',');
  }
  return text;
}

std::string summaryLine(const std::string& volume, const ScanOutcome& outcome) {
  std::vector<std::string> phrases;
  for (const FileOutcome& file : outcome.files) {
    if (file.failure.empty()) phrases.push_back(phraseOf(file));
  }
  if (phrases.empty()) return {};
  std::string line = volume + ": " + joined(phrases, " and ") + " brought up to date";
  if (outcome.objects) line += ", " + grouped(*outcome.objects) + " objects counted";
  return line;
}

std::string summaryJson(const ScanOutcome& outcome) {
  std::vector<std::string> members;
  for (const FileOutcome& file : outcome.files) {
    if (file.failure.empty()) members.push_back(memberOf(file));
  }
  if (outcome.objects) members.push_back("\"objects\": " + std::to_string(*outcome.objects));
  return "{" + joined(members, ", ") + "}";
}

namespace {

constexpr std::chrono::milliseconds kInterval(200);
constexpr const char* kClearLine = "\r\x1B[K";

}  // namespace

Progress::Progress(std::ostream& terminal, const std::atomic<std::uint64_t>& objects)
    : terminal_(terminal), objects_(objects), thread_([this] { show(); }) {}

Progress::~Progress() {
  {
    const MutexLock lock(mutex_);
    isEnding_ = true;
  }
  ending_.notify_one();
  thread_.join();
}

void Progress::show() {
  MutexLock lock(mutex_);
  while (!waitForEnd()) {
    terminal_ << kClearLine << grouped(objects_) << " objects counted" << std::flush;
  }
  terminal_ << kClearLine << std::flush;
}

bool Progress::waitForEnd() {
  const auto next = std::chrono::steady_clock::now() + kInterval;
  while (!isEnding_ && ending_.wait_until(mutex_, next)) continue;
  return isEnding_;
}

}  // namespace paddock::quotascan
