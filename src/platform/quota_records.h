// Usage and limits of a volume's users and groups, as kept by the enforcing system.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace paddock {

// Of one user or group. A limit of 0 is none. An end of grace is in seconds of 1970's clock, 0 when
// no period of grace runs: the usage is not above its soft limit.
struct QuotaRecord {
  std::uint32_t id = 0;
  std::uint64_t usedBytes = 0;
  std::uint64_t softBytes = 0;
  std::uint64_t hardBytes = 0;
  std::uint64_t bytesGraceEnd = 0;
  std::uint64_t usedFiles = 0;
  std::uint64_t softFiles = 0;
  std::uint64_t hardFiles = 0;
  std::uint64_t filesGraceEnd = 0;
  friend bool operator==(const QuotaRecord&, const QuotaRecord&) = default;
};

struct LimitPair {
  std::uint64_t soft = 0;
  std::uint64_t hard = 0;
};
// Absent members are left unchanged.
struct QuotaLimits {
  std::optional<LimitPair> bytes = std::nullopt;
  std::optional<LimitPair> files = std::nullopt;
};

// Types are 0 for users and 1 for groups. Any path on a volume names it, its last component
// followed when it is a link. Every operation gives 0, or an errno with its out value empty:
//   ENOTSUP  the volume keeps no quotas of the type
//   ENOENT   no such path
//   EINVAL   another type, or a path of which `quotaPathError` says so
// and what the volume itself reports (EPERM, EROFS, EIO). Thread-safe.
class QuotaRecords {
 public:
  virtual ~QuotaRecords() = default;
  // Of every id that is known, in ascending order; also of those that use nothing.
  virtual int list(const std::string& path, std::uint32_t type,
                   std::vector<QuotaRecord>& records) = 0;
  // Of one id; one that is not known uses nothing and has no limits.
  virtual int find(const std::string& path, std::uint32_t type, std::uint32_t id,
                   QuotaRecord& record) = 0;
  // Limits of bytes are raised to whole KiB. ERANGE for one that the volume cannot keep, EINVAL for
  // a soft limit above a hard one other than 0. Nothing is changed then.
  virtual int setLimits(const std::string& path, std::uint32_t type, std::uint32_t id,
                        const QuotaLimits& limits) = 0;
};

inline constexpr std::uint64_t kQuotaBlock = 1024;

// Validation common to all implementations.
inline bool areLimits(const QuotaLimits& limits) {
  const auto fits = [](const std::optional<LimitPair>& pair) {
    return !pair || pair->hard == 0 || pair->soft <= pair->hard;
  };
  return fits(limits.bytes) && fits(limits.files);
}

}  // namespace paddock
