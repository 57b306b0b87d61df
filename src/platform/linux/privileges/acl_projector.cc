#include "platform/linux/privileges/acl_projector.h"

#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/privileges/posix_projection.h"

namespace paddock {

namespace {

// The groups of users, found out before they are needed.
class KnownGroups {
 public:
  int find(UserGroups& groups, const std::vector<std::uint32_t>& uids) {
    for (const std::uint32_t uid : uids)
      if (const int error = groups.groupsOf(uid, known_[uid]); error != 0) return error;
    return 0;
  }
  projection::GroupsOf function() const {
    return
        [this](std::uint32_t uid) -> const std::vector<std::uint32_t>& { return known_.at(uid); };
  }

 private:
  std::map<std::uint32_t, std::vector<std::uint32_t>> known_;
};

posix_acl::Acl onlyMode(const posix_acl::Classes& classes) {
  posix_acl::Acl acl;
  acl.classes = classes;
  return acl;
}

posix_acl::Classes classesOf(const nt_acl::OpenObject& object, const AccessAcl& present) {
  return posix_acl::classesOf(modeWithout(present, object.status.st_mode));
}

// A file without an access ACL has the one that says its mode; setting that one removes any other.
XattrChange accessChange(const nt_acl::OpenObject& object, const AccessAcl& present,
                         const posix_acl::Acl& acl) {
  std::string before = present.value.value_or(
      posix_acl::encode(onlyMode(posix_acl::classesOf(object.status.st_mode))));
  return {posix_acl::kAccessAttribute, std::move(before), posix_acl::encode(acl), true};
}

int defaultChange(const ExtendedAttributes& attributes, const nt_acl::OpenObject& object,
                  const posix_acl::Acl& acl, XattrChange& change) {
  change = {posix_acl::kDefaultAttribute, std::nullopt, std::nullopt, true};
  if (acl.namesAnybody()) change.after = posix_acl::encode(acl);
  return nt_acl::readValue(attributes, object.number, change.name, change.before);
}

}  // namespace

int AclProjector::project(const nt_acl::OpenObject& object, const AccessAcl& present,
                          const nt_acl::SplitList& list, std::vector<XattrChange>& changes) const {
  projection::Source source{{}, list.complete, classesOf(object, present), object.status.st_gid};
  int error = nt_acl::readRules(sids_, membership_, list.entries, source.rules);
  if (error != 0) return error;
  KnownGroups known;
  error = known.find(groups_, projection::namedUsers(source.rules));
  if (error != 0) return error;
  const auto groupsOf = known.function();
  return change(object, present, projection::accessAcl(source, groupsOf),
                projection::defaultAcl(source, groupsOf), changes);
}

int AclProjector::clear(const nt_acl::OpenObject& object, const AccessAcl& present,
                        std::vector<XattrChange>& changes) const {
  const posix_acl::Acl acl = onlyMode(classesOf(object, present));
  return change(object, present, acl, acl, changes);
}

int AclProjector::change(const nt_acl::OpenObject& object, const AccessAcl& present,
                         const posix_acl::Acl& access, const posix_acl::Acl& inherited,
                         std::vector<XattrChange>& changes) const {
  if (!present.isSupported) return 0;
  if (object.isFolder()) {
    XattrChange passedOn;
    const int error = defaultChange(attributes_, object, inherited, passedOn);
    if (error != 0) return error;
    changes.push_back(std::move(passedOn));
  }
  changes.push_back(accessChange(object, present, access));
  return 0;
}

}  // namespace paddock
