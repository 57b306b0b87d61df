// The programs in the module's own bundle.
#pragma once

namespace paddock {

inline constexpr const char* kCopyPrivsPath =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs";
inline constexpr const char* kEffectivePrivsPath =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";

}  // namespace paddock
