#include "effectiveprivs/effectiveprivs.h"

#include <optional>

#include "effectiveprivs/effectiveprivs_options.h"
#include "effectiveprivs/explanation.h"
#include "effectiveprivs/installation.h"
#include "effectiveprivs/question.h"
#include "effectiveprivs/who.h"

namespace paddock::effectiveprivs {

namespace {

// The exit status when an entry for an unknown principal, or a directory node that does not
// respond, leaves something in doubt.
constexpr int kUnsure = 4;

struct Output {
  std::string text;
  int status = frame::done;
};

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
  const int status = who.isDoubted() || !who.leftOut.empty() ? kUnsure : frame::done;
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
  const ListRights overSmb = found.privileges.staleTail
                                 ? staleListRights(installation.accounts(), found.privileges, user)
                                 : listRights(explanation.permissions);
  explanation.answer = doors.answerFor({person, explanation.user}, overSmb,
                                       kindOf(found.privileges, place.object(), installation));
  if (const FolderAbove* folder = doors.facts().folderThatStops(person))
    explanation.barrier = folder->path;
  explanation.leftOut = installation.leftOut();
  const int status =
      explanation.isDoubted() || !explanation.leftOut.empty() ? kUnsure : frame::done;
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
  return {std::to_string(granted(found.verdicts)) + "\n", frame::done};
}

}  // namespace

int runEffectiveprivs(const std::vector<std::string>& words, const std::string& root,
                      std::ostream& out, std::ostream& error) {
  const frame::ProgramRun run("effectiveprivs", kUsage, out, error);
  std::string fault;
  const auto options = readOptions(words, fault);
  if (!options) return run.refuse(fault);
  if (options->isAny()) return run.describe(*options);
  return run.attempt([&] {
    const Output found = answer(*options, root);
    return run.print(found.text, found.status);
  });
}

}  // namespace paddock::effectiveprivs
