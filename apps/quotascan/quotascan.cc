#include "quotascan/quotascan.h"

#include <optional>

#include "base/text.h"
#include "quotascan/quotascan_options.h"
#include "quotascan/scan_report.h"
#include "quotascan/volume_scan.h"

namespace paddock::quotascan {

namespace {

const char* nounOf(QuotaType type) { return type == kUserQuota ? "users" : "groups"; }

// Reports the failures of single files, and what the figures may lack.
int reportFiles(const ScanOutcome& outcome, const frame::ProgramRun& run) {
  int status = frame::done;
  for (const FileOutcome& file : outcome.files) {
    if (!file.failure.empty()) {
      run.say(file.failure);
      status = frame::failed;
    } else if (file.table.repeated > 0) {
      run.say("the quota file for " + std::string(nounOf(file.type)) + " had " +
              grouped(file.table.repeated) +
              " entries whose id had another one before; the first of each is kept");
    }
  }
  if (!outcome.unsettled.empty()) {
    run.say(outcome.unsettled +
            " kept changing while the volume was counted: the figures may lack what was moved from "
            "or to it; run quotascan again when it is at rest");
    status = frame::failed;
  }
  return status;
}

// `terminal` is null when no progress is displayed.
ScanOutcome scan(const Options& options, const frame::ProgramRun& run, std::ostream* terminal) {
  ScanEvents events;
  std::optional<Progress> progress;
  if (terminal != nullptr && options.byHand) {
    events.waiting = [&] { run.say("waiting for another run on " + options.volume); };
    events.walking = [&] { progress.emplace(*terminal, events.objects); };
    events.walked = [&] { progress.reset(); };
  }
  return scanVolume(options.volume, events,
                    options.kernelAlone ? CountedBy::kernelAlone : CountedBy::any);
}

int perform(const Options& options, const frame::ProgramRun& run, std::ostream* terminal) {
  const ScanOutcome outcome = scan(options, run, terminal);
  const int status = reportFiles(outcome, run);
  if (!options.byHand) return status;
  const std::string text =
      options.json ? summaryJson(outcome) : printable(summaryLine(options.volume, outcome));
  return run.print(text.empty() ? text : text + "\n", status);
}

}  // namespace

int runQuotascan(const std::vector<std::string>& words, std::ostream& out, std::ostream& error,
                 bool onTerminal) {
  const frame::ProgramRun run("quotascan", kUsage, out, error);
  std::string fault;
  const auto options = readOptions(words, fault);
  if (!options) return run.refuse(fault);
  if (options->isAny()) return run.describe(*options);
  return run.attempt([&] { return perform(*options, run, onTerminal ? &error : nullptr); });
}

}  // namespace paddock::quotascan
