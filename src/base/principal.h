// A user or group by id.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace paddock {

enum class PrincipalType { user, group };

struct Principal {
  PrincipalType type = PrincipalType::user;
  std::uint32_t id = 0;
  friend bool operator==(const Principal&, const Principal&) = default;
};

// Well-known principals ([MS-DTYP] 2.4.2.4), by the GUIDs that represent their SIDs in an ACL
// (docs/formats/acl.md, "Principals").
struct WellKnownPrincipal {
  std::string_view guid;
  std::string_view sid;
  std::string_view name;  // as it is typed and printed
};

inline constexpr std::array<WellKnownPrincipal, 32> kWellKnownPrincipals = {{
    {"5349443A-85A0-85C3-9E19-9D2B4E6E0C32", "S-1-1-0", "everyone"},
    {"5349443A-58C6-86C7-8D71-4C883ACABA60", "S-1-2-0", "local-logon"},
    {"5349443A-5568-8243-B093-A7AE9C579C6A", "S-1-3-0", "creator-owner"},
    {"5349443A-2015-8B6A-BA9F-66688FE3A456", "S-1-3-1", "creator-group"},
    {"5349443A-4418-8C61-B0EA-F84DBD0C1F25", "S-1-3-2", "creator-owner-server"},
    {"5349443A-704A-871A-A034-69CC4044BD5F", "S-1-3-3", "creator-group-server"},
    {"5349443A-5237-8D42-93F9-E5AC1DCC64D0", "S-1-3-4", "owner-rights"},
    {"5349443A-6F58-842A-A5CA-3F23315EFDEF", "S-1-5-1", "dialup"},
    {"5349443A-1B2D-8D71-9C13-2C40C2003B33", "S-1-5-2", "network"},
    {"5349443A-3DF3-8EB7-ACDC-4850CDB7EF73", "S-1-5-3", "batch"},
    {"5349443A-6B38-8A62-AD04-8928DF132818", "S-1-5-4", "interactive"},
    {"5349443A-21BD-847C-A070-F62F8C31A154", "S-1-5-6", "service"},
    {"5349443A-D2F0-8C40-ABE1-19E87FB9B867", "S-1-5-7", "anonymous"},
    {"5349443A-3539-8905-A021-A3526E8731B8", "S-1-5-9", "domain-controllers"},
    {"5349443A-DE2D-8844-A9DE-3D3E10E441CC", "S-1-5-10", "principal-self"},
    {"5349443A-7FB8-891A-A32B-99F21BD0A15F", "S-1-5-11", "authenticated-users"},
    {"5349443A-0410-85B0-894D-AAF355DFD5AE", "S-1-5-12", "restricted"},
    {"5349443A-20D3-81ED-B12D-C622627E3DAB", "S-1-5-13", "terminal-server-users"},
    {"5349443A-CF02-8280-8E2D-AF69417D1E64", "S-1-5-14", "remote-interactive"},
    {"5349443A-3759-8742-A69E-F2B46B12A9A7", "S-1-5-15", "this-organization"},
    {"5349443A-F53C-8FA2-AC14-76DC077249DC", "S-1-5-18", "local-system"},
    {"5349443A-594D-8F7A-8245-72BC569C5EBC", "S-1-5-19", "local-service"},
    {"5349443A-AE31-8BDF-8930-02B00414808D", "S-1-5-20", "network-service"},
    {"5349443A-3DE7-899C-AA1C-3D49B4F359CD", "S-1-5-32-544", "builtin-administrators"},
    {"5349443A-CF62-83FE-9267-08FAA694C99D", "S-1-5-32-545", "builtin-users"},
    {"5349443A-3003-8EFC-A693-04C796D5932B", "S-1-5-32-546", "builtin-guests"},
    {"5349443A-3898-808D-9C55-A5F5A4203EB5", "S-1-5-32-547", "builtin-power-users"},
    {"5349443A-CC3C-85E5-A536-B112D73C44C8", "S-1-5-32-548", "builtin-account-operators"},
    {"5349443A-0AB9-8BA5-AB1B-C34E538D0CF1", "S-1-5-32-549", "builtin-server-operators"},
    {"5349443A-9E1C-8FB3-B80D-C9BDA1B1C5DD", "S-1-5-32-550", "builtin-print-operators"},
    {"5349443A-D95D-8995-ADE0-B62072FA5E27", "S-1-5-32-551", "builtin-backup-operators"},
    {"5349443A-9AFB-8322-94CD-A4E9C614CEE9", "S-1-5-32-552", "builtin-replicators"},
}};

// The one that satisfies the predicate; null when there is none.
template <typename Function>
constexpr const WellKnownPrincipal* wellKnownPrincipal(Function isIt) {
  for (const WellKnownPrincipal& one : kWellKnownPrincipals)
    if (isIt(one)) return &one;
  return nullptr;
}

}  // namespace paddock
