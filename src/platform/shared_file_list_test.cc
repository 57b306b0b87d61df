#include "platform/shared_file_list.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(FileUrls, EscapesWhatIsNoUnreservedCharacter) {
  EXPECT_EQ(fileUrl("/srv/a-b_c.d~e"), "file:///srv/a-b_c.d~e");
  EXPECT_EQ(fileUrl("/srv/a b%\xC3\xA9"), "file:///srv/a%20b%25%C3%A9");
}

TEST(FileUrls, OnlyAbsolutePathsHaveOne) {
  EXPECT_FALSE(fileUrl(""));
  EXPECT_FALSE(fileUrl("srv/a"));
  EXPECT_FALSE(fileUrl(std::string("/srv\0a", 6)));
}

}  // namespace
}  // namespace paddock
