#include "effectiveprivs/question.h"

#include <utility>

namespace paddock::effectiveprivs {

namespace {

// Reads it for a user: entries that match the user have a known principal.
ObjectPrivileges readFor(const Identity& user, Installation& installation,
                         const PinnedObject& object) {
  ObjectPrivileges privileges = installation.objects().read(object);
  installation.markStrangers(
      privileges, [&](const Subject& subject) { return user.match(subject, false).has_value(); });
  return privileges;
}

}  // namespace

const PinnedObject* Place::around() {
  if (!around_) around_.emplace(object_.parent());
  return *around_ ? &**around_ : nullptr;
}

const ObjectPrivileges* Place::privilegesAround(const Identity& user) {
  const PinnedObject* folder = around();
  if (folder == nullptr) return nullptr;
  if (!privilegesAround_) privilegesAround_ = readFor(user, installation_, *folder);
  return &*privilegesAround_;
}

Answer answerFor(Place& place, Installation& installation, const Identity& user) {
  Answer answer;
  answer.privileges = user.isRoot() ? ObjectReader::readMode(place.object())
                                    : readFor(user, installation, place.object());
  answer.verdicts = judge(
      answer.privileges, [&] { return place.privilegesAround(user); }, user);
  return answer;
}

KernelAnswer kernelAnswerFor(Place& place, const KernelUser& user) {
  const KernelObject object = ObjectReader::readKernel(place.object());
  const PinnedObject* folder = place.around();
  std::optional<KernelObject> around;
  if (folder != nullptr) around = ObjectReader::readKernel(*folder);
  return {kernelBits(object, user), kernelPermissions(object, around ? &*around : nullptr, user)};
}

}  // namespace paddock::effectiveprivs
