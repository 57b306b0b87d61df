#include "platform/linux/dnssd/avahi_link.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

using std::chrono::milliseconds;

TEST(BackOffPauses, PausesDoubleUpToLongest) {
  BackOff pauses(milliseconds(100), milliseconds(500));
  for (const int expected : {100, 200, 400, 500, 500}) EXPECT_EQ(pauses.pause().count(), expected);
}

TEST(BackOffPauses, AfterASuccessThePausesBeginAnew) {
  BackOff pauses(milliseconds(100), milliseconds(500));
  pauses.pause();
  pauses.pause();
  pauses.reset();
  EXPECT_EQ(pauses.pause().count(), 100);
}

TEST(BackOffPauses, TheFirstMayBeTheLongest) {
  BackOff pauses(milliseconds(5), milliseconds(5));
  EXPECT_EQ(pauses.pause().count(), 5);
  EXPECT_EQ(pauses.pause().count(), 5);
}

}  // namespace
}  // namespace paddock
