#include "platform/linux/files/file_object.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <numeric>

namespace paddock {
namespace {

using Values = std::map<std::string, std::string>;

// Attributes in memory that have room for so many bytes, one change of which may fail.
class SmallXattrs final : public ExtendedAttributes {
 public:
  mutable Values values;
  std::size_t room = 1000;
  std::string unsupported;
  mutable int changes = 0;

  int get(int, const std::string&, std::string&) const override { return EIO; }
  int set(int, const std::string& name, std::string_view value) const override {
    ++changes;
    if (name == unsupported) return EOPNOTSUPP;
    Values after = values;
    after[name] = value;
    if (sizeOf(after) > room) return ENOSPC;
    values = after;
    return 0;
  }
  int remove(int, const std::string& name) const override {
    ++changes;
    if (name == unsupported) return EOPNOTSUPP;
    return values.erase(name) == 1 ? 0 : ENODATA;
  }

 private:
  static std::size_t sizeOf(const Values& all) {
    return std::accumulate(
        all.begin(), all.end(), std::size_t{0},
        [](std::size_t sum, const auto& one) { return sum + one.second.size(); });
  }
};

const auto kNone = std::nullopt;
std::string bytes(std::size_t count) { return std::string(count, 'x'); }

TEST(XattrChanges, AllChangesAreMade) {
  SmallXattrs xattrs;
  xattrs.values = {{"a", "1"}, {"b", "2"}};
  EXPECT_EQ(applyChanges(xattrs, 0, {{"a", "1", "11"}, {"b", "2", kNone}, {"c", kNone, "3"}}), 0);
  EXPECT_EQ(xattrs.values, (Values{{"a", "11"}, {"c", "3"}}));
}

TEST(XattrChanges, WhatStaysAsItIsIsNotWritten) {
  SmallXattrs xattrs;
  xattrs.values = {{"a", "1"}};
  EXPECT_EQ(applyChanges(xattrs, 0, {{"a", "1", "1"}, {"b", kNone, kNone}}), 0);
  EXPECT_EQ(xattrs.changes, 0);
}

TEST(XattrChanges, AFailureUndoesWhatWasDoneBefore) {
  SmallXattrs xattrs;
  xattrs.room = 10;
  xattrs.values = {{"a", bytes(2)}, {"b", bytes(3)}};
  const Values before = xattrs.values;
  EXPECT_EQ(
      applyChanges(xattrs, 0,
                   {{"a", bytes(2), bytes(4)}, {"b", bytes(3), kNone}, {"c", kNone, bytes(7)}}),
      ENOSPC);
  EXPECT_EQ(xattrs.values, before);
}

TEST(XattrChanges, UndoingFindsRoomInWhateverOrderThatTakes) {
  // "b" can have its old value again only when "a" has, and the other way round in the second.
  for (const bool turned : {false, true}) {
    SmallXattrs xattrs;
    xattrs.room = 10;
    const std::string large = turned ? "b" : "a";
    const std::string small = turned ? "a" : "b";
    xattrs.values = {{large, bytes(8)}, {small, bytes(2)}};
    const Values before = xattrs.values;
    EXPECT_EQ(
        applyChanges(
            xattrs, 0,
            {{large, bytes(8), bytes(1)}, {small, bytes(2), bytes(9)}, {"c", kNone, bytes(5)}}),
        ENOSPC);
    EXPECT_EQ(xattrs.values, before);
  }
}

TEST(XattrChanges, RemovingWhatIsGoneIsNoFailure) {
  SmallXattrs xattrs;
  EXPECT_EQ(applyChanges(xattrs, 0, {{"a", "1", kNone}}), 0);
}

TEST(XattrChanges, UnsupportedOptionalAttributeIsOmitted) {
  SmallXattrs xattrs;
  xattrs.unsupported = "b";
  EXPECT_EQ(applyChanges(xattrs, 0, {{"a", kNone, "1"}, {"b", kNone, "2", true}}), 0);
  EXPECT_EQ(xattrs.values, (Values{{"a", "1"}}));
  EXPECT_EQ(applyChanges(xattrs, 0, {{"a", "1", "3"}, {"b", kNone, "2"}}), EOPNOTSUPP);
  EXPECT_EQ(xattrs.values, (Values{{"a", "1"}}));
}

}  // namespace
}  // namespace paddock
