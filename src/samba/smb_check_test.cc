#include "samba/smb_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "samba/smb_parameters.h"
#include "support/temporary_folder.h"

namespace paddock::samba {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Optional;

constexpr const char* kTestparm = "/usr/bin/testparm";

std::optional<std::string> said(const std::string& lines) {
  return faultSaidByTestparm(kTestparm, lines);
}

TEST(FaultSaidByTestparm, IsNoneOfWhatSambaTakes) {
  EXPECT_EQ(said(""), "");
  EXPECT_EQ(said("    read only = yes\n    guest ok = yes\n    browseable = no\n"), "");
  EXPECT_EQ(said("    hosts allow = 10. 127.0.0.1 EXCEPT 10.0.0.5\n"), "");
  EXPECT_EQ(said("    smb encrypt = required\n    veto files = /a/b?.txt/\n"), "");
}

TEST(FaultSaidByTestparm, NamesWhatSambaDoesNotTake) {
  EXPECT_THAT(said("    frobnicate = yes\n"), Optional(HasSubstr("\"frobnicate\"")));
  EXPECT_THAT(said("    oplocks = maybe\n"), Optional(HasSubstr("maybe")));
  EXPECT_THAT(said("    csc policy = silly\n"), Optional(HasSubstr("silly")));
  EXPECT_THAT(said("    workgroup = X\n"), Optional(HasSubstr("workgroup")));
  EXPECT_THAT(said("    case sensitive = x\n"), Optional(HasSubstr("case sensitive")));
}

TEST(FaultSaidByTestparm, IsUnknownWithoutTheProgram) {
  EXPECT_EQ(faultSaidByTestparm("/nonexistent/testparm", "    frobnicate = yes\n"), std::nullopt);
}

TEST(FaultSaidByTestparm, OfAProgramThatFailsIsItsStatus) {
  const TestFolder folder;
  const std::string program = folder.path("testparm");
  writeWholeFile(program, "#!/bin/sh\nexit 3\n");
  std::filesystem::permissions(program, std::filesystem::perms(0755));
  EXPECT_EQ(faultSaidByTestparm(program, ""), program + " ended with status 3");
}

TEST(FaultSaidByTestparm, NeverReportsAllowedParameterAsUnknown) {
  for (const std::string& key : allowedParameters()) {
    const auto fault = said("    " + key + " = 1\n");
    EXPECT_THAT(fault, Optional(AllOf(Not(HasSubstr("Unknown parameter")),
                                      Not(HasSubstr("Global parameter")))))
        << key;
  }
}

}  // namespace
}  // namespace paddock::samba
