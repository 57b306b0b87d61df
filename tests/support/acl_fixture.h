// Shared by fixtures whose tests create ACL entries and make single calls fail.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/acl_list.h"
#include "platform/services.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/service_doubles.h"

namespace paddock {

class AclFixture : public ::testing::Test {
 protected:
  static acl::Entry entryOf(int tag, const std::optional<Guid>& guid, acl::Permission permissions,
                            acl::Flag flags = 0) {
    acl::Entry entry;
    entry.tag = tag;
    entry.qualifier = guid;
    entry.permset.permissions = permissions;
    entry.flagset.flags = flags;
    return entry;
  }

  // The result of `work` while, of these services, the `nth` call named `call` fails with `error`.
  template <typename Work>
  static auto whileFailing(const Services& doubles, const std::string& call, std::size_t nth,
                           int error, const Work& work) {
    FaultPlan plan(nth);
    plan.countOnly(call);
    plan.setError(error);
    const ForwardingServices faulty(doubles, plan);
    const ServicesGuard guard(faulty.services());
    const auto result = work();
    EXPECT_TRUE(plan.fired()) << call << " was not called so often";
    return result;
  }
};

}  // namespace paddock
