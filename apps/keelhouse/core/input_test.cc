#include "keelhouse/core/input.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string_view>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

// The reading end of a pipe that holds `text`.
class Input {
 public:
  explicit Input(std::string_view text) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe(ends), 0);
    EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(ends[1]);
    descriptor_ = ends[0];
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input() { ::close(descriptor_); }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

std::string passwordFrom(std::string_view text) {
  const Input input(text);
  return readPassword(input.descriptor(), "Password", true);
}

TEST(Password, isTheFirstLine) {
  EXPECT_EQ(passwordFrom("secret"), "secret");
  EXPECT_EQ(passwordFrom("secret\n"), "secret");
  EXPECT_EQ(passwordFrom(" se cret \nmore\n"), " se cret ");
  EXPECT_EQ(passwordFrom(std::string(1024, 'x')), std::string(1024, 'x'));
}

TEST(Password, leavesTheNextLineToBeRead) {
  const Input input("one\ntwo\n");
  EXPECT_EQ(readPassword(input.descriptor(), "Password", false), "one");
  EXPECT_EQ(readPassword(input.descriptor(), "Password", false), "two");
}

TEST(Password, cannotBeEmptyLongOrOutsideUtf8) {
  for (const std::string& text :
       {std::string(), std::string("\n"), std::string("\xFF\n"), std::string(1025, 'x')}) {
    EXPECT_THROW(passwordFrom(text), Failure);
  }
  EXPECT_THROW(readPassword(9999, "Password", false), Failure);
}

TEST(Input, isReadToItsEndOrItsLimit) {
  EXPECT_EQ(readAll(Input("abc\n").descriptor(), 4), "abc\n");
  EXPECT_EQ(readAll(Input("").descriptor(), 4), "");
  EXPECT_THROW(readAll(Input("abcde").descriptor(), 4), Failure);
}

}  // namespace
}  // namespace paddock::keelhouse
