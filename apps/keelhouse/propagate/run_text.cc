#include "keelhouse/propagate/run_text.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

std::string pushedWords(std::uint32_t mask) {
  std::string text;
  for (const PushedPart& part : kPushedParts) {
    if ((mask & part.bit) == 0) continue;
    text += (text.empty() ? "" : ", ") + std::string(part.word);
  }
  return text.empty() ? "nothing" : text;
}

namespace {

constexpr std::uint64_t kSecondsOfMinute = 60;
constexpr std::uint64_t kMinutesOfHour = 60;
constexpr std::uint64_t kHundred = 100;
constexpr double kLongest = 1e9;
constexpr std::size_t kShown = 20;
constexpr std::size_t kWidestBar = 40;
constexpr std::size_t kNarrowestBar = 10;

std::string twoDigits(std::uint64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string errorsText(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " error" : " errors");
}

// The total is an estimate, so all of it may be done before the end.
std::optional<std::uint64_t> percentOf(const RunStatus& run) {
  if (run.completed && !run.stopped) return kHundred;
  if (run.total == 0) return std::nullopt;
  const double part = static_cast<double>(run.done) / static_cast<double>(run.total);
  return std::min<std::uint64_t>(static_cast<std::uint64_t>(part * kHundred), kHundred - 1);
}

std::optional<std::uint64_t> secondsLeft(const RunStatus& run, std::optional<double> rate) {
  if (run.completed || !rate || *rate <= 0 || run.total <= run.done) return std::nullopt;
  const double seconds = std::ceil(static_cast<double>(run.total - run.done) / *rate);
  return static_cast<std::uint64_t>(std::min(seconds, kLongest));
}

std::string moreLine(std::size_t shown, std::uint64_t all) {
  return all > shown ? "  and " + std::to_string(all - shown) + " more\n" : "";
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ",") + word;
  return printable(text);
}

}  // namespace

std::string objectsText(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " object" : " objects");
}

std::string durationText(std::uint64_t seconds) {
  const std::uint64_t minutes = seconds / kSecondsOfMinute;
  if (minutes == 0) return std::to_string(seconds) + " s";
  if (minutes < kMinutesOfHour) {
    return std::to_string(minutes) + " min " + twoDigits(seconds % kSecondsOfMinute) + " s";
  }
  return std::to_string(minutes / kMinutesOfHour) + " h " + twoDigits(minutes % kMinutesOfHour) +
         " min";
}

std::string progressText(const RunStatus& run, std::optional<double> rate) {
  std::string text = std::to_string(run.done);
  if (run.total > 0) text += " of " + std::to_string(std::max(run.total, run.done));
  text += " objects";
  if (const auto percent = percentOf(run)) text += " (" + std::to_string(*percent) + "%)";
  if (rate) text += ", " + std::to_string(std::llround(*rate)) + "/s";
  if (const auto left = secondsLeft(run, rate)) text += ", " + durationText(*left) + " left";
  return text + ", " + errorsText(run.failed);
}

std::string progressBar(const RunStatus& run, std::optional<double> rate, std::size_t columns) {
  const std::string text = progressText(run, rate);
  const auto percent = percentOf(run);
  const std::size_t room = columns > text.size() + 3 ? columns - text.size() - 3 : 0;
  if (!percent || room < kNarrowestBar) return text.substr(0, columns);
  const std::size_t width = std::min(room, kWidestBar);
  const std::size_t full = width * *percent / kHundred;
  return "[" + std::string(full, '#') + std::string(width - full, '-') + "] " + text;
}

std::string resultText(const std::string& path, const RunStatus& run) {
  std::string text = printable(path) + ": ";
  if (run.stopped) text += "stopped after ";
  text += objectsText(run.done);
  if (run.stopped && run.total > run.done) text += " of " + std::to_string(run.total);
  text += (run.dryRun ? ", " + std::to_string(run.changed) + " would change"
                      : ", " + std::to_string(run.changed) + " changed");
  if (run.leftOut > 0) text += ", " + std::to_string(run.leftOut) + " left out (links)";
  return text + ", " + errorsText(run.failed) + ", in " + durationText(run.seconds) + "\n";
}

std::string errorLines(const RunStatus& run) {
  std::string lines;
  const std::size_t shown = std::min(run.errors.size(), kShown);
  for (std::size_t at = 0; at < shown; ++at) {
    lines += "  " + printable(run.errors[at].path) + ": " + printable(run.errors[at].error) + "\n";
  }
  return lines + moreLine(shown, run.failed);
}

std::string exampleTable(const RunStatus& run) {
  std::vector<std::vector<std::string>> rows{{"CHANGES", "OBJECT"}};
  const std::size_t shown = std::min(run.examples.size(), kShown);
  for (std::size_t at = 0; at < shown; ++at) {
    rows.push_back({joined(run.examples[at].changes), printable(run.examples[at].path)});
  }
  return shown == 0 ? "" : formatTable(rows) + moreLine(shown, run.changed);
}

}  // namespace paddock::keelhouse
