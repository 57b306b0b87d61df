// What is asked, with everything that the answer depends on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "effectiveprivs/evaluation.h"
#include "effectiveprivs/installation.h"
#include "effectiveprivs/pinned_object.h"
#include "platform/linux/acl/kernel_access.h"

namespace paddock::effectiveprivs {

// A file or folder, and its parent, which is read on first use.
class Place {
 public:
  // The installation must outlive this object. Throws Failure.
  Place(const std::string& path, Installation& installation)
      : object_(path), installation_(installation) {}

  const PinnedObject& object() const { return object_; }
  // Null for the root directory. These throw Failure.
  const PinnedObject* around();
  const ObjectPrivileges* privilegesAround(const Identity& user);

 private:
  const PinnedObject object_;
  Installation& installation_;
  std::optional<std::optional<PinnedObject>> around_;
  std::optional<ObjectPrivileges> privilegesAround_;
};

struct Answer {
  ObjectPrivileges privileges;  // of root's question without the list, which does not matter
  Verdicts verdicts;
};

// Throws Failure.
Answer answerFor(Place& place, Installation& installation, const Identity& user);

// What the kernel says to the same question.
struct KernelAnswer {
  KernelBits bits;
  acl::Permission permissions = 0;
};

// Throws Failure.
KernelAnswer kernelAnswerFor(Place& place, const KernelUser& user);

}  // namespace paddock::effectiveprivs
