// The connection breaks, or the server dies, at each message of each change.
#include <atomic>
#include <thread>

#include "ldap/ldap_operations.h"

namespace paddock {
namespace {

using ::testing::AnyOf;
using Cut = CuttingProxy::Cut;

class LdapConnectionCuts : public LdapTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    proxy_ = std::make_unique<CuttingProxy>(slapd().folder().path("socket"));
  }
  CuttingProxy& proxy() { return *proxy_; }
  std::shared_ptr<DirectoryNode> throughProxy() {
    LdapOptions options = slapd().nodeOptions();
    options.uri = proxy().uri();
    options.timeout = std::chrono::minutes(1);  // however busy the machine is
    return nodeWith(options);
  }
  // The status of the operation on a connection that breaks at this message, or, with `dying`,
  // whose server does. Nothing of it is done before.
  Status runCutAt(int message, Cut cut, bool dying, bool& wasCut) {
    GetParam().prepare(*node());
    const auto asked = throughProxy();
    proxy().cutAt(message, cut, dying);
    const Status status = raised([&] { GetParam().run(*asked); });
    wasCut = proxy().hasCut();
    proxy().heal();
    return status;
  }

 private:
  std::unique_ptr<CuttingProxy> proxy_;
};
INSTANTIATE_TEST_SUITE_P(Ldap, LdapConnectionCuts, ::testing::ValuesIn(operationsOnRecords()),
                         [](const auto& each) { return std::string(each.param.name); });

constexpr int kMostMessages = 60;

TEST_P(LdapConnectionCuts, BrokenConnectionIsReestablishedAndOperationRunsOnce) {
  for (const Cut cut : {Cut::request, Cut::answer}) {
    bool wasCut = true;
    int number = 0;
    while (wasCut && number < kMostMessages) {
      EXPECT_EQ(runCutAt(++number, cut, false, wasCut), 0) << "message " << number;
      EXPECT_TRUE(GetParam().isDone(*node())) << "message " << number;
      removeAll(*node());
    }
    EXPECT_LT(number, kMostMessages);
    EXPECT_GT(number, 2);
  }
}

TEST_P(LdapConnectionCuts, DyingServerLeavesOperationDoneOrUndone) {
  for (const Cut cut : {Cut::request, Cut::answer}) {
    bool wasCut = true;
    int number = 0;
    while (wasCut && number < kMostMessages) {
      const Status status = runCutAt(++number, cut, true, wasCut);
      EXPECT_TRUE(status != 0 || GetParam().isDone(*node())) << "message " << number;
      EXPECT_TRUE(GetParam().isWhollyDoneOrNot(*node()))
          << "message " << number << ", status " << status;
      if (status != 0) {
        EXPECT_THAT(status, AnyOf(ECONNRESET, ECONNREFUSED, EHOSTUNREACH, EKEYREJECTED));
      }
      // Leftovers do not block a retry.
      if (!GetParam().isDone(*node())) {
        GetParam().run(*node());
      }
      EXPECT_TRUE(GetParam().isDone(*node())) << "message " << number;
      removeAll(*node());
    }
    EXPECT_LT(number, kMostMessages);
    EXPECT_GT(number, 2);
  }
}

TEST_P(LdapConnectionCuts, RestartedServerHasOperationDoneOrUndone) {
  for (const Cut cut : {Cut::request, Cut::answer}) {
    bool wasKilled = true;
    int number = 0;
    while (wasKilled && number < kMostMessages) {
      GetParam().prepare(*node());
      const auto asked = throughProxy();
      std::atomic<bool> isDead{false};
      proxy().onCut([&] {
        slapd().kill();
        isDead = true;
      });
      proxy().cutAt(++number, cut, true);
      const Status status = raised([&] { GetParam().run(*asked); });
      wasKilled = proxy().hasCut();
      while (wasKilled && !isDead) std::this_thread::yield();
      if (wasKilled) slapd().start();
      proxy().heal();
      EXPECT_EQ(status != 0, wasKilled) << "message " << number;
      EXPECT_TRUE(GetParam().isWhollyDoneOrNot(*node()))
          << "message " << number << ", status " << status;
      if (!GetParam().isDone(*node())) GetParam().run(*node());
      EXPECT_TRUE(GetParam().isDone(*node())) << "message " << number;
      removeAll(*node());
    }
    EXPECT_GT(number, 2);
  }
}

}  // namespace
}  // namespace paddock
