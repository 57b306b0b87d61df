// Safeguards against the loss of a hand-written exports file.
#include <gtest/gtest.h>

#include <cerrno>

#include "exports/nfs_export_parser.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/service_doubles.h"
#include "support/exports_parser_test_support.h"

namespace paddock {
namespace {

using ExportsFileSafety = ParserTest;

TEST_F(ExportsFileSafety, OnlyFirstChangeCopiesFile) {
  const auto parser = parserOf("# mine\n\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kCopy), "# mine\n\n");
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kCopy), "# mine\n\n");
}

TEST_F(ExportsFileSafety, AnEarlierCopyIsLeftAlone) {
  files_.setFile(kCopy, "# earlier\n");
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kCopy), "# earlier\n");
}

TEST_F(ExportsFileSafety, UnchangedWriteTouchesNothingAndMakesNoCopy) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.replacements(), 0);
  EXPECT_EQ(files_.find(kCopy), nullptr);
}

TEST_F(ExportsFileSafety, ReplacementOfOwnFileIsCopiedBeforeChange) {
  const auto parser = NFSExportParser::initWithFile(kFile);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_FALSE(files_.exists(kCopy)) << "there was nothing to keep";
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_FALSE(files_.exists(kCopy)) << "it is ours";
  files_.replace(kFile, "# by hand\n");
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kCopy), "# by hand\n");
}

TEST_F(ExportsFileSafety, WithoutItsCopyTheFileIsNotWritten) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  FaultPlan plan(1);
  plan.countOnly("textFiles.copyOnce");
  plan.setError(ENOSPC);
  const ForwardingServices faulty(services(), plan);
  const ServicesGuard guard(faulty.services());
  EXPECT_FALSE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), "# mine\n");
  EXPECT_TRUE(parser->writeFile());
}

TEST_F(ExportsFileSafety, NeverReadableFileIsNeverOverwritten) {
  for (const InMemoryTextFiles::Object& object :
       {InMemoryTextFiles::Object{InMemoryTextFiles::Kind::file, "# caf\xE9\n"},
        InMemoryTextFiles::Object{InMemoryTextFiles::Kind::file, "# mine\n", 0},
        InMemoryTextFiles::Object{InMemoryTextFiles::Kind::folder, ""},
        InMemoryTextFiles::Object{InMemoryTextFiles::Kind::other, ""}}) {
    files_.set(kFile, object);
    const auto parser = NFSExportParser::parserWithFile(kFile);
    parser->addOrReplaceExport(exportTo("/srv/a"));
    EXPECT_FALSE(parser->writeFile());
    ASSERT_NE(files_.find(kFile), nullptr);
    EXPECT_EQ(*files_.find(kFile), object);
    EXPECT_EQ(files_.find(kCopy), nullptr);
  }
}

TEST_F(ExportsFileSafety, NoLongerReadableFileIsNotOverwritten) {
  const auto parser = parserOf("# mine\n");
  files_.setFile(kFile, "# caf\xE9\n");
  EXPECT_FALSE(parser->readFile());
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_FALSE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), "# caf\xE9\n");
}

TEST_F(ExportsFileSafety, FileCreatedAfterFirstReadIsAdopted) {
  const auto parser = NFSExportParser::parserWithFile(kFile);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  parser->addOrReplaceExport(exportTo("/srv/b"));
  files_.setFile(kFile, "# mine\n" + kBegin + "/srv/c *(ro)\n/srv/a old(ro)\n" + kEnd);
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile),
            "# mine\n" + kBegin + "/srv/b *(ro)\n/srv/a *(ro)\n/srv/c *(ro)\n" + kEnd);
}

TEST_F(ExportsFileSafety, WriteRetriesFailedFirstRead) {
  files_.setFile(kFile, "# mine\n");
  FaultPlan plan(1);
  const ForwardingServices faulty(services(), plan);
  const ServicesGuard guard(faulty.services());
  const auto parser = NFSExportParser::parserWithFile(kFile);
  ASSERT_EQ(plan.failedCall(), "textFiles.read");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
}

TEST_F(ExportsFileSafety, EveryFaultKeepsLinesAndLeavesWholeFile) {
  const std::string old = "# mine\n";
  const std::string changed = kBegin + "/srv/a *(ro)\n" + kEnd + old;
  bool fired = true;
  for (std::size_t failing = 1; fired; ++failing) {
    files_.remove(kCopy);
    const auto parser = parserOf(old);
    parser->addOrReplaceExport(exportTo("/srv/a"));
    const std::string lines = parser->description();
    FaultPlan plan(failing);
    const ForwardingServices faulty(services(), plan);
    bool written = false;
    {
      const ServicesGuard guard(faulty.services());
      written = parser->writeFile();
    }
    fired = plan.fired();
    EXPECT_EQ(written, !fired) << plan.failedCall();
    EXPECT_EQ(files_.contents(kFile), written ? changed : old) << plan.failedCall();
    EXPECT_EQ(parser->description(), lines) << plan.failedCall();
    EXPECT_TRUE(parser->writeFile()) << "it works again after " << plan.failedCall();
  }
}

TEST_F(ExportsFileSafety, RemovedFileIsRecreatedAndLoggedAsError) {
  const auto parser = parserOf("# mine\n/srv/public *(ro)\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  const auto errors = [&] {
    std::string text;
    for (const auto& entry : logger_.lines())
      if (entry.priority == kLogError) text += entry.text + "\n";
    return text;
  };
  files_.remove(kFile);
  EXPECT_FALSE(parser->readFileIfChanged());
  EXPECT_TRUE(parser->isGone());
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_EQ(errors(), "");
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kFile),
            "# mine\n/srv/public *(ro)\n" + kBegin + "/srv/b *(ro)\n/srv/a *(ro)\n" + kEnd);
  EXPECT_EQ(
      errors(),
      "paddock_sharing: /etc/exports was gone, removed by somebody else; it is made anew with 2 "
      "lines that it had: /srv/public *(ro); /srv/a *(ro)\n");
  EXPECT_FALSE(parser->isGone());
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(errors().find("was gone"), errors().rfind("was gone")) << "once";
}

TEST_F(ExportsFileSafety, NeverExistingFileIsNotReportedGone) {
  const auto parser = NFSExportParser::parserWithFile(kFile);
  EXPECT_FALSE(parser->isGone());
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFile());
  EXPECT_TRUE(logger_.lines().empty());
}

TEST_F(ExportsFileSafety, LogsReadCopyAndWriteFailures) {
  const auto parser = parserOf("# mine\n");
  EXPECT_EQ(parser->fault(), "");
  const auto faultOf = [&](const char* call, const auto& attempt) {
    FaultPlan plan(1);
    plan.countOnly(call);
    plan.setError(EACCES);
    const ForwardingServices faulty(services(), plan);
    const ServicesGuard guard(faulty.services());
    EXPECT_FALSE(attempt());
    return parser->fault();
  };
  const auto read = [&] { return parser->readFile(); };
  const auto write = [&] { return parser->writeFile(); };
  EXPECT_EQ(faultOf("textFiles.read", read), "cannot read /etc/exports: Permission denied");
  EXPECT_TRUE(parser->readFile());
  EXPECT_EQ(parser->fault(), "");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(faultOf("textFiles.read", write), "cannot read /etc/exports: Permission denied");
  EXPECT_EQ(faultOf("textFiles.copyOnce", write),
            "cannot copy /etc/exports: /etc/exports.before-paddock: Permission denied");
  EXPECT_EQ(faultOf("textFiles.replace", write), "cannot write /etc/exports: Permission denied");
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(parser->fault(), "");
  files_.setFile(kFile, "\xFF");
  EXPECT_FALSE(parser->readFile());
  EXPECT_EQ(parser->fault(), "cannot read /etc/exports: it is not UTF-8");
  files_.remove(kFile);
  EXPECT_FALSE(parser->readFile());
  EXPECT_EQ(parser->fault(), "") << "that there is none is no fault";
}

}  // namespace
}  // namespace paddock
