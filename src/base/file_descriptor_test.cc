#include "base/file_descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "base/system_call.h"

namespace paddock {
namespace {

bool isOpen(int number) { return ::fcntl(number, F_GETFD) != -1; }

TEST(FileDescriptor, ClosesAtTheEndOfItsScope) {
  int number = -1;
  {
    const FileDescriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    number = descriptor.get();
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, MovingHandsTheDescriptorOn) {
  FileDescriptor first(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int number = first.get();
  FileDescriptor second(std::move(first));
  EXPECT_EQ(second.get(), number);
  FileDescriptor third(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int replaced = third.get();
  third = std::move(second);
  EXPECT_FALSE(isOpen(replaced));
  EXPECT_EQ(third.get(), number);
}

TEST(FileDescriptor, ClosingKeepsErrno) {
  FileDescriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(descriptor);
  ASSERT_EQ(::close(descriptor.get()), 0);
  errno = ENOENT;
  descriptor.reset();
  EXPECT_EQ(errno, ENOENT);
}

TEST(SystemCall, InterruptedCallsAreRepeatedAndOtherErrorsAreNot) {
  int calls = 0;
  EXPECT_EQ(retryOnInterrupt([&calls] {
              errno = EINTR;
              return ++calls < 3 ? -1 : 7;
            }),
            7);
  calls = 0;
  EXPECT_EQ(retryOnInterrupt([&calls] {
              ++calls;
              errno = EIO;
              return -1;
            }),
            -1);
  EXPECT_EQ(calls, 1);
}

TEST(SystemCall, ErrorsCarryTheOperationThePathAndTheNumber) {
  const auto error = systemError(ENOENT, "open", "/no/such/file");
  EXPECT_EQ(error.code().value(), ENOENT);
  EXPECT_STREQ(error.what(), "open /no/such/file: No such file or directory");
}

}  // namespace
}  // namespace paddock
