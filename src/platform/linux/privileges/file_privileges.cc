#include "platform/linux/privileges/file_privileges.h"

#include <utility>

namespace paddock {

FilePrivileges::FilePrivileges(const FilePrivilegesOptions& options, DirectoryService& directory,
                               Membership& membership, std::unique_ptr<SidResolver> resolver)
    : files_(clock_, AccountFiles::usual({options.databasePath})),
      accounts_(directory),
      knownMembership_(membership, files_),
      sids_(knownMembership_, options.rememberedSidsPath, std::move(resolver)),
      options_{options.attribute, options.projection, &files_},
      fileAcls_(options_, sids_, knownMembership_, knownGroups_) {}

}  // namespace paddock
