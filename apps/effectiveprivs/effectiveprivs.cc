#include "effectiveprivs/effectiveprivs.h"

#include <exception>
#include <optional>

#include "base/printable.h"
#include "effectiveprivs/explanation.h"
#include "effectiveprivs/installation.h"
#include "effectiveprivs/options.h"
#include "effectiveprivs/question.h"
#include "effectiveprivs/who.h"

namespace paddock::effectiveprivs {

namespace {

enum ExitStatus { done = 0, failed = 1, usage = 2 };

void say(std::ostream& error, const std::string& text) {
  error << "effectiveprivs: " << printable(text) << std::endl;
}

std::string answerOfEverybody(const Options& options, Installation& installation) {
  const PinnedObject object(options.path);
  const ObjectPrivileges privileges = installation.objects().read(object);
  AccountListing listing = installation.list();
  const Who who = whoMay(privileges, listing, installation.accounts());
  if (options.json) return whoJson(options.path, who) + "\n";
  return whoText(objectText(describe(installation.accounts(), options.path, privileges)), who);
}

std::string answer(const Options& options, const std::string& root) {
  Installation installation(root);
  if (options.who) return answerOfEverybody(options, installation);
  Place place(options.path, installation);
  const Identity user = installation.identify(options.uid);
  const Answer found = answerFor(place, installation, user);
  if (!options.explain) return std::to_string(granted(found.verdicts)) + "\n";
  std::optional<KernelAnswer> kernel;
  if (!user.isRoot()) kernel = kernelAnswerFor(place, {options.uid, user.hostGids()});
  const Explanation explanation =
      explain(installation.accounts(), options.path, user, found, kernel);
  return options.json ? explanationJson(explanation) + "\n" : explanationText(explanation);
}

int perform(const Options& options, const std::string& root, std::ostream& out,
            std::ostream& error) {
  out << answer(options, root) << std::flush;
  if (out) return done;
  say(error, "standard output cannot be written");
  return failed;
}

}  // namespace

int runEffectiveprivs(const std::vector<std::string>& words, const std::string& root,
                      std::ostream& out, std::ostream& error) {
  std::string fault;
  const auto options = readOptions(words, fault);
  if (!options) {
    say(error, fault);
    error << kUsage << '\n';
    return usage;
  }
  if (options->help || options->version) {
    out << (options->help ? kUsage : "effectiveprivs " PADDOCK_VERSION) << '\n';
    return done;
  }
  try {
    return perform(*options, root, out, error);
  } catch (const std::exception& exception) {
    say(error, exception.what());
    return failed;
  }
}

}  // namespace paddock::effectiveprivs
