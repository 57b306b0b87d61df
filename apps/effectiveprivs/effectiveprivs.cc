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

// Unsure: an entry for somebody unknown, or a directory node that cannot be asked, leaves something
// in doubt.
enum ExitStatus { done = 0, failed = 1, usage = 2, unsure = 4 };

struct Output {
  std::string text;
  ExitStatus status = done;
};

void say(std::ostream& error, const std::string& text) {
  error << "effectiveprivs: " << printable(text) << std::endl;
}

ListKind kindOf(const ObjectPrivileges& privileges, const PinnedObject& object,
                const Installation& installation) {
  if (!privileges.list) return ListKind::none;
  switch (installation.objects().listForce(object)) {
    case samba::ListForce::inForce:
      return ListKind::inForce;
    case samba::ListForce::neverHeld:
    case samba::ListForce::overridden:
      return ListKind::overridden;
    case samba::ListForce::unknown:
      break;
  }
  return ListKind::unsure;
}

Output answerOfEverybody(const Options& options, Installation& installation) {
  const PinnedObject object(options.path);
  const Doors doors(object, installation);
  ObjectPrivileges privileges;
  Who who = installation.ask("cannot list the accounts", [&] {
    privileges = installation.objects().read(object);
    AccountListing listing = installation.list();
    installation.markStrangers(privileges, [&](const Subject& subject) {
      return listing.userWithGuid(subject.guid) || listing.groupWithGuid(subject.guid);
    });
    return whoMay(privileges, doors.questions(kindOf(privileges, object, installation)), listing,
                  installation.accounts());
  });
  who.leftOut = installation.leftOut();
  const ExitStatus status = who.isDoubted() || !who.leftOut.empty() ? unsure : done;
  if (options.json) return {whoJson(options.path, who) + "\n", status};
  return {whoText(objectText(describe(installation.accounts(), options.path, privileges)), who),
          status};
}

Output explained(const Options& options, Installation& installation, Place& place,
                 const Identity& user, const Answer& found) {
  std::optional<KernelAnswer> kernel;
  if (!user.isRoot()) kernel = kernelAnswerFor(place, {options.uid, user.hostGids()});
  Explanation explanation = explain(installation.accounts(), options.path, user, found, kernel);
  const Doors doors(place.object(), installation);
  const KernelPerson person{options.uid, user.hostGids()};
  explanation.answer =
      doors.answerFor({person, explanation.user}, listRights(explanation.permissions),
                      kindOf(found.privileges, place.object(), installation));
  if (const FolderAbove* folder = doors.facts().folderThatStops(person))
    explanation.barrier = folder->path;
  explanation.leftOut = installation.leftOut();
  const ExitStatus status = explanation.isDoubted() || !explanation.leftOut.empty() ? unsure : done;
  if (options.json) return {explanationJson(explanation) + "\n", status};
  return {options.answer ? answerText(explanation) : explanationText(explanation), status};
}

Output answer(const Options& options, const std::string& root) {
  Installation installation(root);
  if (options.who) return answerOfEverybody(options, installation);
  Place place(options.path, installation);
  const Identity user = installation.identify(options.uid);
  const Answer found = installation.ask("cannot find out whom the entries name",
                                        [&] { return answerFor(place, installation, user); });
  if (options.explain || options.answer)
    return explained(options, installation, place, user, found);
  // The module reads a number, and nothing else.
  return {std::to_string(granted(found.verdicts)) + "\n", done};
}

int perform(const Options& options, const std::string& root, std::ostream& out,
            std::ostream& error) {
  const Output found = answer(options, root);
  out << found.text << std::flush;
  if (out) return found.status;
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
