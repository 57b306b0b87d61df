#include "copyprivs/run_report.h"

#include <algorithm>
#include <functional>
#include <string_view>

#include "copyprivs/planner.h"
#include "wire/xml_text.h"

namespace paddock::copyprivs {

namespace {

constexpr std::string_view kLeftOut = "...";
constexpr std::size_t kHalf = (kLongestPath - kLeftOut.size()) / 2;
// What a byte may take at most: as "&amp;", and as "\xNN".
constexpr std::size_t kOfMarkup = 5;
constexpr std::size_t kOfOthers = 4;

std::size_t sizeOf(const std::string& path) {
  std::string text;
  wire::appendXmlText(text, path);
  return text.size();
}

std::size_t mostOf(char character) {
  const auto byte = static_cast<unsigned char>(character);
  if (character == '&' || character == '<' || character == '>' || character == '\r') {
    return kOfMarkup;
  }
  return byte < 0x20 || byte >= 0x7F ? kOfOthers : 1;
}

// How many bytes from the begin of the range fit into a half.
template <typename Iterator>
std::ptrdiff_t fitting(Iterator begin, Iterator end) {
  std::size_t taken = 0;
  const auto first = std::find_if(
      begin, end, [&](char character) { return (taken += mostOf(character)) > kHalf; });
  return first - begin;
}

bool isInCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80; }

}  // namespace

std::string shortPath(const std::string& path) {
  if (path.size() * kOfMarkup <= kLongestPath || sizeOf(path) <= kLongestPath) return path;
  auto front = path.begin() + fitting(path.begin(), path.end());
  auto back = path.end() - fitting(path.rbegin(), path.rend());
  // No character is split.
  while (front != path.begin() && isInCharacter(*front)) --front;
  while (back != path.end() && isInCharacter(*back)) ++back;
  return std::string(path.begin(), front).append(kLeftOut).append(back, path.end());
}

namespace {

Array namesOf(unsigned changes) {
  Array names;
  if ((changes & Plan::kOwner) != 0) names.emplace_back("owner");
  if ((changes & Plan::kGroup) != 0) names.emplace_back("group");
  if ((changes & Plan::kMode) != 0) names.emplace_back("mode");
  if ((changes & Plan::kAcl) != 0) names.emplace_back("acl");
  return names;
}

}  // namespace

void RunReport::add(Counts& counts) {
  found_ += counts.found;
  changed_ += counts.changed;
  done_ += counts.done;
  leftOut_ += counts.leftOut;
  share_ += counts.share;
  counts = {};
}

bool RunReport::addError(const std::string& path, const std::string& error) {
  const std::uint64_t key = std::hash<std::string>()(path);
  const MutexLock lock(mutex_);
  if (failed_.contains(key)) return false;
  if (failed_.size() < kKnown) {
    failed_.insert(key);
  } else if (isRepeating_) {
    return false;
  }
  if (errorCount_++ < kKept) {
    errors_.emplace_back(Dictionary{{"path", shortPath(path)}, {"error", error}});
  }
  return true;
}

void RunReport::addExample(const std::string& path, unsigned changes) {
  if (exampleCount_++ >= kKept) return;
  const MutexLock lock(mutex_);
  examples_.emplace_back(Dictionary{{"path", shortPath(path)}, {"changes", namesOf(changes)}});
}

std::uint64_t RunReport::estimatedTotal(std::uint64_t done) const {
  // Smaller shares are not yet representative.
  constexpr double kTelling = 0.001;
  const std::uint64_t found = std::max<std::uint64_t>(done, found_);
  const double share = share_;
  if (share < kTelling) return found;
  return std::max(found, static_cast<std::uint64_t>(static_cast<double>(done) / share));
}

void RunReport::fill(Dictionary& status, bool isEnded, bool dryRun) const {
  const std::uint64_t done = done_;
  status.set("itemsDone", done);
  status.set("itemsTotal", isEnded ? done : estimatedTotal(done));
  status.set("itemsChanged", changed_.load());
  status.set("errorCount", errorCount_.load());
  const MutexLock lock(mutex_);
  status.set("errors", errors_);
  if (dryRun) status.set("examples", examples_);
}

}  // namespace paddock::copyprivs
