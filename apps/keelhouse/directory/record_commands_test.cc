#include "keelhouse/directory/record_commands.h"

#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

TEST(RecordNames, AcceptShortTypes) {
  EXPECT_EQ(recordType("users"), "dsRecTypeStandard:Users");
  EXPECT_EQ(recordType("groups"), "dsRecTypeStandard:Groups");
  EXPECT_EQ(recordType("sharepoints"), "dsRecTypeStandard:SharePoints");
  EXPECT_EQ(recordType("mounts"), "dsRecTypeStandard:Mounts");
  EXPECT_EQ(recordType("dsRecTypeNative:x"), "dsRecTypeNative:x");
  EXPECT_THROW(recordType("printers"), Failure);
  EXPECT_THROW(recordType(""), Failure);
}

TEST(RecordNames, ExpandShortAttributesToStandardNames) {
  EXPECT_EQ(attributeName("RealName"), "dsAttrTypeStandard:RealName");
  EXPECT_EQ(attributeName("dsAttrTypeNative:vsp_name"), "dsAttrTypeNative:vsp_name");
}

TEST(RecordNames, CollectValuesOfOneAttribute) {
  EXPECT_EQ(parseAttributes({"A=1", "B=x=y", "A=2", "dsAttrTypeNative:c="}),
            (Dictionary{{"dsAttrTypeStandard:A", Array{"1", "2"}},
                        {"dsAttrTypeStandard:B", Array{"x=y"}},
                        {"dsAttrTypeNative:c", Array{""}}}));
  EXPECT_EQ(parseAttributes({}), Dictionary{});
}

TEST(RecordNames, RejectWordsWithoutAssignment) {
  for (const char* word : {"A", "=x", "", "A=\xFF"}) {
    EXPECT_THROW(parseAttributes({word}), Failure) << word;
  }
}

}  // namespace
}  // namespace paddock::keelhouse
