#include "base/system_call.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(SystemCallErrors, RetriesACallThatASignalInterrupted) {
  int calls = 0;
  const int result = retryOnInterrupt([&] {
    ++calls;
    errno = EINTR;
    return calls < 3 ? -1 : 7;
  });
  EXPECT_EQ(result, 7);
  EXPECT_EQ(calls, 3);
}

TEST(SystemCallErrors, HandsOutTheErrnoOfOtherFailures) {
  int descriptor = 5;
  EXPECT_EQ(errnoOf([] { return ::open("/nonexistent/file", O_RDONLY | O_CLOEXEC); }, &descriptor),
            ENOENT);
  EXPECT_EQ(descriptor, 5);
  EXPECT_EQ(errnoOf([] { return 0; }), 0);
}

TEST(SystemCallErrors, AnErrorNamesTheOperationAndThePath) {
  const std::system_error error = systemError(ENOENT, "open", "/srv/a");
  EXPECT_STREQ(error.what(), "open /srv/a: No such file or directory");
  EXPECT_EQ(error.code().value(), ENOENT);
}

}  // namespace
}  // namespace paddock
