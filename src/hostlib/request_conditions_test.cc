#include "paddock/request_conditions.h"

#include <gtest/gtest.h>

#include <thread>

namespace paddock {
namespace {

std::string digest(std::string_view state) { return "<" + std::string(state) + ">"; }

// Whether a client with that header takes the state "present".
bool takes(const std::optional<std::string>& ifMatch) {
  try {
    RequestConditions(ifMatch, digest).require("present", true);
    return true;
  } catch (const PreconditionFailed&) {
    return false;
  }
}

TEST(RequestConditions, WithoutAHeaderEveryStateWillDo) {
  EXPECT_TRUE(takes(std::nullopt));
  EXPECT_FALSE(RequestConditions(std::nullopt, digest).hasIfMatch());
  EXPECT_NO_THROW(RequestConditions(std::nullopt, digest).require(std::nullopt, false));
}

TEST(RequestConditions, AStarTakesEveryStateThatThereIs) {
  EXPECT_TRUE(takes("*"));
  EXPECT_TRUE(takes(" *\t"));
  EXPECT_THROW(RequestConditions("*", digest).require("present", false), PreconditionFailed);
}

TEST(RequestConditions, ATagTakesItsStateAlone) {
  EXPECT_TRUE(takes("\"<present>\""));
  EXPECT_FALSE(takes("\"<other>\""));
  EXPECT_FALSE(takes("\"\""));
  EXPECT_NO_THROW(RequestConditions("\"<nothing>\"", digest).require("nothing", false));
}

TEST(RequestConditions, UntaggedStateMatchesOnlyStar) {
  EXPECT_NO_THROW(RequestConditions("*", digest).require(std::nullopt, true));
  EXPECT_THROW(RequestConditions("\"<>\"", digest).require(std::nullopt, true), PreconditionFailed);
}

TEST(RequestConditions, OneTagOfAListIsEnough) {
  EXPECT_TRUE(takes("\"<a>\", \"<present>\""));
  EXPECT_TRUE(takes("\"<present>\",\"<b>\""));
  EXPECT_TRUE(takes(", \"<a>\" , , \"<present>\" ,"));
  EXPECT_FALSE(takes("\"<a>\", \"<b>\""));
}

TEST(RequestConditions, ACommaMayStandInsideATag) {
  EXPECT_FALSE(takes("\"a,\"<present>\",b\""));
  EXPECT_TRUE(takes("\"a,b\",\"<present>\""));
}

TEST(RequestConditions, AWeakTagTakesNoState) {
  EXPECT_FALSE(takes("W/\"<present>\""));
  EXPECT_TRUE(takes("W/\"<present>\", \"<present>\""));
}

TEST(RequestConditions, WhatCannotBeReadTakesNoState) {
  for (const char* text :
       {"", " ", "<present>", "\"<present>", "\"<present>\" x", "* , \"<present>\"",
        "\"<present>\"\"<present>\"", "w/\"<present>\"", "**"}) {
    EXPECT_FALSE(takes(text)) << text;
  }
}

TEST(RequestConditions, TheReplysTagIsItsStatesInQuotes) {
  RequestConditions conditions(std::nullopt, digest);
  EXPECT_EQ(conditions.replyTag(), "");
  conditions.setReplyState("s");
  EXPECT_EQ(conditions.replyTag(), "\"<s>\"");
  conditions.setReplyState(std::nullopt);
  EXPECT_EQ(conditions.replyTag(), "");
}

TEST(RequestConditions, AThreadHasThoseOfItsInnermostScope) {
  EXPECT_EQ(currentRequestConditions(), nullptr);
  RequestConditions conditions(std::nullopt, digest);
  const RequestConditionsScope outer(&conditions);
  EXPECT_EQ(currentRequestConditions(), &conditions);
  {
    const RequestConditionsScope none(nullptr);
    EXPECT_EQ(currentRequestConditions(), nullptr);
  }
  EXPECT_EQ(currentRequestConditions(), &conditions);
  std::thread([] { EXPECT_EQ(currentRequestConditions(), nullptr); }).join();
}

}  // namespace
}  // namespace paddock
