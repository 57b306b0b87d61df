#include "effectiveprivs/question.h"

#include <utility>

namespace paddock::effectiveprivs {

namespace {

std::string barrierFor(const PinnedObject* folder, const KernelUser& user) {
  std::optional<PinnedObject> above;
  while (folder != nullptr) {
    const KernelBits bits = kernelBits(ObjectReader::readKernel(*folder), user);
    if ((bits.bits & posix_acl::kExecute) == 0) return folder->path();
    auto next = folder->parent();
    above.reset();
    if (next) above.emplace(std::move(*next));
    folder = above ? &*above : nullptr;
  }
  return {};
}

}  // namespace

const PinnedObject* Place::around() {
  if (!around_) around_.emplace(object_.parent());
  return *around_ ? &**around_ : nullptr;
}

const ObjectPrivileges* Place::privilegesAround() {
  const PinnedObject* folder = around();
  if (folder == nullptr) return nullptr;
  if (!privilegesAround_) privilegesAround_ = reader_.read(*folder);
  return &*privilegesAround_;
}

Answer answerFor(Place& place, const Installation& installation, const Identity& user) {
  Answer answer;
  answer.privileges = user.isRoot() ? ObjectReader::readMode(place.object())
                                    : installation.objects().read(place.object());
  answer.verdicts = judge(
      answer.privileges, [&place] { return place.privilegesAround(); }, user);
  return answer;
}

KernelAnswer kernelAnswerFor(Place& place, const KernelUser& user) {
  const KernelObject object = ObjectReader::readKernel(place.object());
  const PinnedObject* folder = place.around();
  std::optional<KernelObject> around;
  if (folder != nullptr) around = ObjectReader::readKernel(*folder);
  return {kernelBits(object, user), kernelPermissions(object, around ? &*around : nullptr, user),
          barrierFor(folder, user)};
}

}  // namespace paddock::effectiveprivs
