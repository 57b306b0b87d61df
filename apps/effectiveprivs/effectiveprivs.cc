#include "effectiveprivs/effectiveprivs.h"

#include <exception>
#include <optional>

#include "base/printable.h"
#include "effectiveprivs/evaluation.h"
#include "effectiveprivs/installation.h"
#include "effectiveprivs/options.h"
#include "effectiveprivs/pinned_object.h"

namespace paddock::effectiveprivs {

namespace {

enum ExitStatus { done = 0, failed = 1, usage = 2 };

void say(std::ostream& error, const std::string& text) {
  error << "effectiveprivs: " << printable(text) << std::endl;
}

// The folder around an object, read when it is first asked for.
class Surroundings {
 public:
  Surroundings(const PinnedObject& object, const ObjectReader& reader)
      : object_(object), reader_(reader) {}

  const ObjectPrivileges* parent() {
    if (!isRead_) {
      if (const auto folder = object_.parent()) parent_ = reader_.read(*folder);
      isRead_ = true;
    }
    return parent_ ? &*parent_ : nullptr;
  }

 private:
  const PinnedObject& object_;
  const ObjectReader& reader_;
  std::optional<ObjectPrivileges> parent_;
  bool isRead_ = false;
};

std::string answer(const Options& options, const std::string& root) {
  const PinnedObject object(options.path);
  Installation installation(root);
  const Identity user = installation.identify(options.uid);
  // Root needs no list, not even one that can be read.
  if (user.isRoot()) return std::to_string(acl::kAllPermissions);
  const ObjectPrivileges privileges = installation.objects().read(object);
  Surroundings around(object, installation.objects());
  return std::to_string(granted(judge(
      privileges, [&around] { return around.parent(); }, user)));
}

int perform(const Options& options, const std::string& root, std::ostream& out,
            std::ostream& error) {
  out << answer(options, root) << '\n' << std::flush;
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
