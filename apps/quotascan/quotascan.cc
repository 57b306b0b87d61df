#include "quotascan/quotascan.h"

#include <exception>
#include <optional>

#include "base/printable.h"
#include "quotascan/options.h"
#include "quotascan/progress.h"
#include "quotascan/summary.h"
#include "quotascan/volume_scan.h"

namespace paddock::quotascan {

namespace {

enum ExitStatus { done = 0, failed = 1, usage = 2 };

void say(std::ostream& error, const std::string& text) {
  error << "quotascan: " << printable(text) << std::endl;
}

const char* nounOf(QuotaType type) { return type == kUserQuota ? "users" : "groups"; }

// Says what went wrong with single files.
int reportFiles(const ScanOutcome& outcome, std::ostream& error) {
  int status = done;
  for (const FileOutcome& file : outcome.files) {
    if (!file.failure.empty()) {
      say(error, file.failure);
      status = failed;
    } else if (file.table.repeated > 0) {
      say(error, "the quota file for " + std::string(nounOf(file.type)) + " had " +
                     grouped(file.table.repeated) +
                     " entries whose id had another one before; the first of each is kept");
    }
  }
  return status;
}

ScanOutcome scan(const Options& options, std::ostream& error, bool onTerminal) {
  ScanEvents events;
  std::optional<Progress> progress;
  if (onTerminal && options.byHand) {
    events.waiting = [&] { say(error, "waiting for another run on " + options.volume); };
    events.walking = [&] { progress.emplace(error, events.objects); };
    events.walked = [&] { progress.reset(); };
  }
  return scanVolume(options.volume, events,
                    options.kernelAlone ? CountedBy::kernelAlone : CountedBy::any);
}

int perform(const Options& options, std::ostream& out, std::ostream& error, bool onTerminal) {
  const ScanOutcome outcome = scan(options, error, onTerminal);
  const int status = reportFiles(outcome, error);
  if (!options.byHand) return status;
  const std::string text =
      options.json ? summaryJson(outcome) : printable(summaryLine(options.volume, outcome));
  if (!text.empty()) out << text << '\n' << std::flush;
  if (out) return status;
  say(error, "standard output cannot be written");
  return failed;
}

}  // namespace

int runQuotascan(const std::vector<std::string>& words, std::ostream& out, std::ostream& error,
                 bool onTerminal) {
  std::string fault;
  const auto options = readOptions(words, fault);
  if (!options) {
    say(error, fault);
    error << kUsage << '\n';
    return usage;
  }
  if (options->help || options->version) {
    out << (options->help ? kUsage : "quotascan " PADDOCK_VERSION) << '\n';
    return done;
  }
  try {
    return perform(*options, out, error, onTerminal);
  } catch (const std::exception& exception) {
    say(error, exception.what());
    return failed;
  }
}

}  // namespace paddock::quotascan
