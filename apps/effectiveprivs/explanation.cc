#include "effectiveprivs/explanation.h"

#include <algorithm>

#include "effectiveprivs/names.h"

namespace paddock::effectiveprivs {

namespace {

const char* wordFor(Reason reason) {
  switch (reason) {
    case Reason::root:
      return "root";
    case Reason::entry:
      return "entry";
    case Reason::mode:
      return "mode";
    case Reason::owner:
      return "owner";
    case Reason::everybody:
      return "everybody";
    case Reason::parent:
      return "parent";
    case Reason::list:
      return "list";
    case Reason::nothing:
      break;
  }
  return "nothing";
}

std::string bitsText(posix_acl::Bits bits) {
  std::string text = "---";
  if ((bits & posix_acl::kRead) != 0) text[0] = 'r';
  if ((bits & posix_acl::kWrite) != 0) text[1] = 'w';
  if ((bits & posix_acl::kExecute) != 0) text[2] = 'x';
  return text;
}

std::string modeText(const ObjectPrivileges& object) {
  const auto digit = [](posix_acl::Bits bits) { return static_cast<char>('0' + bits); };
  return {digit(object.classes.owner), digit(object.classes.group), digit(object.classes.others)};
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// One answer about one user.
class Explainer {
 public:
  Explainer(Accounts& accounts, const Identity& user, const Answer& answer)
      : accounts_(accounts), user_(user), object_(answer.privileges) {}

  ExplainedPermission explained(const Verdict& verdict) const {
    ExplainedPermission permission;
    permission.permission = verdict.permission;
    permission.name = permissionName(verdict.permission, object_.isFolder);
    permission.granted = verdict.granted;
    permission.isDoubted = verdict.isDoubted;
    permission.by = wordFor(verdict.reason);
    permission.entry = verdict.entry;
    if (verdict.group) permission.through = wayTo(accounts_, user_.membership(), *verdict.group);
    permission.principal = principalOf(verdict);
    permission.text = doubtOf(verdict) + textOf(verdict, permission);
    return permission;
  }

 private:
  std::string principalOf(const Verdict& verdict) const {
    if (verdict.group)
      return "group:" + groupName(accounts_, user_.membership().groups[*verdict.group]);
    if (verdict.modeClass) return *verdict.modeClass == ModeClass::owner ? "owner" : "others";
    if (!verdict.entry) return {};
    const Subject& subject = object_.list->rules[*verdict.entry].subject;
    // The user's own GUID, when it is no group's.
    if (subject.kind == Subject::Kind::guid) return "user:" + userName(accounts_, user_.uid());
    return subjectName(accounts_, subject);
  }

  // What makes it uncertain, before what would decide it otherwise.
  std::string doubtOf(const Verdict& verdict) const {
    if (!verdict.isDoubted) return {};
    if (!verdict.doubt) return "an entry of the folder around may be for the user or not; ";
    const Rule& rule = object_.list->rules[*verdict.doubt];
    const std::string why = rule.subject.kind == Subject::Kind::unknown
                                ? "nobody here knows who that is"
                                : object_.unaskedNodes +
                                      ", which may count the user as one, cannot be "
                                      "asked";
    return "entry " + std::to_string(*verdict.doubt + 1) + (rule.allow ? " allows " : " denies ") +
           subjectName(accounts_, rule.subject) + ", and " + why + "; else ";
  }

  // A verdict that is in doubt was granted unless what doubts it allows.
  bool wouldGrant(const Verdict& verdict) const {
    if (!verdict.isDoubted || !verdict.doubt) return verdict.granted || verdict.isDoubted;
    return !object_.list->rules[*verdict.doubt].allow;
  }

  std::string textOf(const Verdict& verdict, const ExplainedPermission& permission) const {
    switch (verdict.reason) {
      case Reason::root:
        return "root may do everything";
      case Reason::entry:
        return "entry " + std::to_string(*verdict.entry + 1) +
               (wouldGrant(verdict) ? ": allow " : ": deny ") + permission.principal +
               wayText(permission);
      case Reason::mode:
        return "the mode gives " + permission.principal + " " + bitsText(classBits(verdict)) +
               wayText(permission);
      case Reason::owner:
        return wouldGrant(verdict) ? "the owner has it" : "only the owner has it";
      case Reason::everybody:
        return "everybody has it";
      case Reason::parent:
        return wouldGrant(verdict) ? "the folder around lets the user remove what is in it"
                                   : "the folder around does not let the user remove it";
      case Reason::list:
        return "the list is complete, and does not give it";
      case Reason::nothing:
        break;
    }
    return "nothing gives it";
  }

  // A group that holds the user by itself says it all.
  static std::string wayText(const ExplainedPermission& permission) {
    return permission.through.size() > 1 ? " (through " + joined(permission.through) + ")" : "";
  }

  posix_acl::Bits classBits(const Verdict& verdict) const {
    switch (*verdict.modeClass) {
      case ModeClass::owner:
        return object_.classes.owner;
      case ModeClass::group:
        return object_.classes.group;
      case ModeClass::others:
        break;
    }
    return object_.classes.others;
  }

  Accounts& accounts_;
  const Identity& user_;
  const ObjectPrivileges& object_;
};

std::string kernelText(acl::Permission permission, const KernelBits& bits) {
  switch (permission) {
    case acl::kDelete:
      return "the folder around decides";
    case acl::kReadAttributes:
    case acl::kReadSecurity:
      return "everybody may";
    case acl::kWriteAttributes:
    case acl::kWriteSecurity:
      return "the owner alone may";
    case acl::kChangeOwner:
      return "root alone may";
    default:
      break;
  }
  const std::string rights = " " + bitsText(bits.bits);
  switch (bits.who) {
    case KernelClass::owner:
      return "the owner has" + rights;
    case KernelClass::namedUser:
      return "the user has" + rights + " in its own ACL";
    case KernelClass::group:
      return "the groups of the host give" + rights;
    case KernelClass::others:
      break;
  }
  return "others have" + rights;
}

std::vector<Disagreement> disagreements(const Explanation& explanation,
                                        const KernelAnswer& kernel) {
  std::vector<Disagreement> found;
  for (const ExplainedPermission& one : explanation.permissions) {
    const bool allowed = (kernel.permissions & one.permission) != 0;
    // It means nothing for a file.
    const bool isMoot = one.permission == acl::kDeleteChild && !explanation.object.isFolder;
    if (one.granted != allowed && !isMoot && !one.isDoubted)
      found.push_back({one.permission, one.name, one.granted, allowed,
                       kernelText(one.permission, kernel.bits)});
  }
  return found;
}

std::string ownersText(Accounts& accounts, const ObjectPrivileges& object) {
  return "owner " + userName(accounts, object.uid) + ", group " + groupName(accounts, object.gid) +
         ", mode " + modeText(object);
}

// Whether any of the permissions is granted, and why not.
DoorRight rightOf(const std::vector<ExplainedPermission>& all, acl::Permission wanted) {
  const auto* found = permissionFor(all, wanted);
  if (found->granted) return {};
  return {found->isDoubted ? Access::unknown : Access::no, found->text};
}

}  // namespace

const ExplainedPermission* permissionFor(const std::vector<ExplainedPermission>& all,
                                         acl::Permission wanted) {
  const auto rank = [](const ExplainedPermission& one) {
    return one.granted ? 2 : (one.isDoubted ? 1 : 0);
  };
  const ExplainedPermission* found = nullptr;
  for (const ExplainedPermission& one : all) {
    if ((one.permission & wanted) == 0) continue;
    if (found == nullptr || rank(one) > rank(*found)) found = &one;
  }
  return found;
}

ListRights listRights(const std::vector<ExplainedPermission>& permissions) {
  return {rightOf(permissions, acl::kReadData),
          rightOf(permissions, acl::kWriteData | acl::kAppendData)};
}

ListRights staleListRights(Accounts& accounts, const ObjectPrivileges& object,
                           const Identity& user) {
  const ObjectPrivileges seen = asTailHasIt(object);
  const Answer answer{seen, judge(
                                seen, [] { return nullptr; }, user)};
  ListRights rights = listRights(explain(accounts, {}, user, answer, std::nullopt).permissions);
  const std::string still =
      "the list still has " + ownersText(accounts, seen) + " until they are set here: ";
  for (DoorRight* right : {&rights.read, &rights.write})
    if (right->access != Access::yes) right->why = still + right->why;
  return rights;
}

bool Explanation::isDoubted() const {
  return std::any_of(permissions.begin(), permissions.end(),
                     [](const ExplainedPermission& one) { return one.isDoubted; });
}

ObjectDescription describe(Accounts& accounts, const std::string& path,
                           const ObjectPrivileges& object) {
  ObjectDescription description;
  description.path = path;
  description.isFolder = object.isFolder;
  description.owner = userName(accounts, object.uid);
  description.group = groupName(accounts, object.gid);
  description.mode = modeText(object);
  if (object.list) {
    description.entries = object.list->rules.size();
    description.isComplete = object.list->complete;
  }
  if (object.staleTail) {
    const ObjectPrivileges seen = asTailHasIt(object);
    description.staleTail = ownersText(accounts, seen);
    if (seen.uid != object.uid) description.formerOwner = userName(accounts, seen.uid);
  }
  return description;
}

Explanation explain(Accounts& accounts, const std::string& path, const Identity& user,
                    const Answer& answer, const std::optional<KernelAnswer>& kernel) {
  Explanation explanation;
  explanation.object = describe(accounts, path, answer.privileges);
  explanation.uid = user.uid();
  if (user.isKnown() || user.isRoot()) explanation.user = userName(accounts, user.uid());
  explanation.bitmap = granted(answer.verdicts);
  const Explainer explainer(accounts, user, answer);
  for (const Verdict& verdict : answer.verdicts)
    explanation.permissions.push_back(explainer.explained(verdict));
  if (kernel) {
    explanation.kernelDisagrees = disagreements(explanation, *kernel);
    if (kernel->bits.isApart) explanation.kernelBitsApart = bitsText(kernel->bits.bits);
  }
  return explanation;
}

}  // namespace paddock::effectiveprivs
