#include "platform/linux/accounts/pam_authentication.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/directory.h"

namespace paddock {
namespace {

class PamPasswordChecks : public ::testing::Test {
 protected:
  PamPasswordChecks() {
    std::string name = (std::filesystem::temp_directory_path() / "paddock.XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
    options_ = {"paddock", folder_.string()};
  }
  ~PamPasswordChecks() override { std::filesystem::remove_all(folder_); }

  void configure(const std::string& lines) { std::ofstream(folder_ / "paddock") << lines; }

  // A PAM configuration whose password is in a file: pam_exec passes the answer of the conversation
  // to a program of the test.
  void configurePassword(const std::string& password) {
    const std::filesystem::path program = folder_ / "check";
    std::ofstream(program) << "#!/usr/bin/python3\nimport os, sys\n"
                           << "given = sys.stdin.buffer.read().rstrip(b'\\0')\n"
                           << "good = given == b'" << password << "'\n"
                           << "sys.exit(0 if good and os.environ['PAM_USER'] == 'anna' else 1)\n";
    ::chmod(program.c_str(), 0755);
    configure("auth [success=1 default=ignore] pam_exec.so expose_authtok quiet " +
              program.string() +
              "\nauth requisite pam_deny.so\nauth required pam_permit.so\naccount required "
              "pam_permit.so\n");
  }

  std::filesystem::path folder_;
  PamOptions options_;
};

TEST_F(PamPasswordChecks, AnswersWithThePassword) {
  configurePassword("secret");
  EXPECT_EQ(authenticateWithPam(options_, "anna", "secret"), 0);
  EXPECT_EQ(authenticateWithPam(options_, "anna", "Secret"), EACCES);
  EXPECT_EQ(authenticateWithPam(options_, "bert", "secret"), EACCES);
}

TEST_F(PamPasswordChecks, AnEmptyPasswordNeverAuthenticates) {
  configure("auth required pam_permit.so\naccount required pam_permit.so\n");
  EXPECT_EQ(authenticateWithPam(options_, "anna", "x"), 0);
  EXPECT_EQ(authenticateWithPam(options_, "anna", ""), EACCES);
  EXPECT_EQ(authenticateWithPam(options_, "", "x"), EACCES);
  EXPECT_EQ(authenticateWithPam(options_, "anna", std::string("x\0y", 3)), EACCES);
}

TEST_F(PamPasswordChecks, InvalidAccountIsNotAllowed) {
  configure("auth required pam_permit.so\naccount required pam_deny.so\n");
  EXPECT_EQ(authenticateWithPam(options_, "anna", "x"), EACCES);
}

TEST_F(PamPasswordChecks, AServiceThatCannotAnswerThrows) {
  configure("auth required no_such_module.so\naccount required pam_permit.so\n");
  EXPECT_THROW(authenticateWithPam(options_, "anna", "x"), DirectoryError);
}

}  // namespace
}  // namespace paddock
