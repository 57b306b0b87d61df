#include "keelhouse/share/share_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

using Name = std::optional<std::string> ShareChanges::*;

constexpr std::pair<const char*, Name> kNames[] = {{"--name", &ShareChanges::name},
                                                   {"--vsp-name", &ShareChanges::vspName},
                                                   {"--smb-name", &ShareChanges::smbName},
                                                   {"--ftp-name", &ShareChanges::ftpName}};

// The text of the refusal; empty when there is none.
std::string refusal(Name member, const std::string& name) {
  ShareChanges changes;
  changes.*member = name;
  try {
    checkShareNames(changes);
    return {};
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::usage);
    return failed.what();
  }
}

TEST(ShareNames, CannotBeEmpty) {
  for (const auto& [option, member] : kNames) {
    EXPECT_EQ(refusal(member, ""), std::string(option) + " cannot be empty");
  }
}

TEST(ShareNames, RequireUtf8) {
  for (const auto& [option, member] : kNames) {
    EXPECT_EQ(refusal(member, "a\xFF"), std::string(option) + " is not UTF-8");
  }
}

TEST(ShareNames, RejectTerminalControlCharacters) {
  for (const auto& [option, member] : kNames) {
    EXPECT_EQ(refusal(member, "a\n[b]"),
              std::string(option) + " holds a control character: a\\x0A[b]");
    // The last is U+202E, in two parts, so that it turns no line of this file around.
    for (const std::string& name :
         {std::string("\x1B[31m"), std::string("a\tb"), std::string("\x7F"),
          std::string("\xC2\x85"), std::string("\xE2\x80") + "\xAE"}) {
      EXPECT_NE(refusal(member, name), "") << option;
    }
  }
}

TEST(ShareNames, AreLimitedToVspLength) {
  EXPECT_EQ(refusal(&ShareChanges::vspName, std::string(31, 'v')), "");
  EXPECT_EQ(refusal(&ShareChanges::vspName, std::string(32, 'v')),
            "--vsp-name can have 31 characters, and has 32");
  std::string accented;
  for (int count = 0; count < 31; ++count) accented += "\xC3\xA9";
  EXPECT_EQ(refusal(&ShareChanges::vspName, accented), "");
}

TEST(ShareNames, AcceptAnyOtherText) {
  for (const char* name : {"it's \"quoted\"", "100 %", "a, b", "%U", "\xF0\x9F\x93\x81",
                           "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D", "-dash", "{}", "#a"}) {
    for (const auto& [option, member] : kNames) EXPECT_EQ(refusal(member, name), "") << option;
  }
  for (const Name member : {&ShareChanges::name, &ShareChanges::ftpName}) {
    EXPECT_EQ(refusal(member, std::string(300, 'x')), "");
  }
}

}  // namespace
}  // namespace paddock::keelhouse
