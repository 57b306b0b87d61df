#include "platform/linux/files/managed_block.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

const std::string kBegin = kManagedBlockBegin;
const std::string kEnd = kManagedBlockEnd;

TEST(ManagedBlockText, ContentsWithoutABlockAreThoseOfOthers) {
  for (const std::string contents : {"", "a\n", "a\nb\n", "a\nnot ended"}) {
    const auto block = splitManagedBlock(contents);
    ASSERT_TRUE(block);
    EXPECT_EQ(block->before, contents);
    EXPECT_EQ(block->lines + block->after, "");
    EXPECT_EQ(joinManagedBlock(*block), contents) << "to the byte";
  }
}

TEST(ManagedBlockText, ABlockStandsAmongTheLinesOfOthers) {
  const std::string contents = "before\n" + kBegin + "one\ntwo\n" + kEnd + "after\n";
  const auto block = splitManagedBlock(contents);
  ASSERT_TRUE(block);
  EXPECT_EQ(block->before, "before\n");
  EXPECT_EQ(block->lines, "one\ntwo\n");
  EXPECT_EQ(block->after, "after\n");
  EXPECT_EQ(joinManagedBlock(*block), contents);
}

TEST(ManagedBlockText, ANewBlockComesLast) {
  auto block = splitManagedBlock("a\n");
  block->lines = "ours\n";
  EXPECT_EQ(joinManagedBlock(*block), "a\n" + kBegin + "ours\n" + kEnd);
}

TEST(ManagedBlockText, UnterminatedLineIsEndedBeforeBlock) {
  auto block = splitManagedBlock("a");
  block->lines = "ours\n";
  EXPECT_EQ(joinManagedBlock(*block), "a\n" + kBegin + "ours\n" + kEnd);
}

TEST(ManagedBlockText, ABlockWithoutLinesGoes) {
  auto block = splitManagedBlock("a\n" + kBegin + "ours\n" + kEnd + "b\n");
  block->lines.clear();
  EXPECT_EQ(joinManagedBlock(*block), "a\nb\n");
}

TEST(ManagedBlockText, AnEndWithoutALineFeedIsOne) {
  const auto block = splitManagedBlock(kBegin + "ours\n" + kEnd.substr(0, kEnd.size() - 1));
  ASSERT_TRUE(block);
  EXPECT_EQ(block->lines, "ours\n");
  EXPECT_EQ(block->after, "");
}

TEST(ManagedBlockText, TheCommentsAreWholeLines) {
  const std::string contents = "x" + kBegin + "a\n" + "x" + kEnd;
  EXPECT_EQ(splitManagedBlock(contents)->before, contents);
}

TEST(ManagedBlockText, WhatIsNotOnePairIsNoBlock) {
  for (const std::string& contents :
       {kBegin, kEnd, kEnd + kBegin, kBegin + "a\n", "a\n" + kEnd, kBegin + kBegin + kEnd,
        kBegin + kEnd + kEnd, kBegin + kEnd + kBegin + kEnd})
    EXPECT_FALSE(splitManagedBlock(contents)) << contents;
}

}  // namespace
}  // namespace paddock
