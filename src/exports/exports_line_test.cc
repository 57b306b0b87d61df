#include "exports/exports_line.h"

#include <gtest/gtest.h>

#include "exports/export_options.h"

namespace paddock {
namespace {

using Options = std::vector<std::string>;

ExportsLine oneClient(const std::string& path, const std::string& host = "*",
                      const Options& options = {}) {
  return {path, {{host, options}}};
}

std::string pathOf(std::string_view line) {
  const auto read = readExportsLine(line);
  return read ? read->path : "(none)";
}

TEST(ReadExportsLine, ReadsPathClientsAndOptions) {
  EXPECT_EQ(
      readExportsLine("/srv/a 10.0.0.0/8(rw,sync) *.example.com @trusted(ro)"),
      (ExportsLine{"/srv/a",
                   {{"10.0.0.0/8", {"rw", "sync"}}, {"*.example.com", {}}, {"@trusted", {"ro"}}}}));
}

TEST(ReadExportsLine, AnyBlanksSeparate) {
  EXPECT_EQ(readExportsLine("/srv/a \t  a(ro)\t\tb(rw)  "),
            (ExportsLine{"/srv/a", {{"a", {"ro"}}, {"b", {"rw"}}}}));
}

TEST(ReadExportsLine, ALineWithoutClientsExportsToEverybody) {
  EXPECT_EQ(readExportsLine("/srv/a"), oneClient("/srv/a"));
  EXPECT_EQ(readExportsLine("/srv/a # comment"), oneClient("/srv/a"));
  EXPECT_EQ(readExportsLine("/srv/a (rw)"), oneClient("/srv/a", "*", {"rw"}));
}

TEST(ReadExportsLine, DefaultOptionsPrecedeThoseOfLaterClients) {
  EXPECT_EQ(readExportsLine("/srv/a first -rw,sync second third(ro) -insecure fourth"),
            (ExportsLine{"/srv/a",
                         {{"first", {}},
                          {"second", {"rw", "sync"}},
                          {"third", {"rw", "sync", "ro"}},
                          {"fourth", {"rw", "sync", "insecure"}}}}));
  EXPECT_EQ(readExportsLine("/srv/a - b"), oneClient("/srv/a", "b"));
}

TEST(ReadExportsLine, DefaultOptionsAtTheEndExportToEverybody) {
  EXPECT_EQ(readExportsLine("/srv/a -rw"), oneClient("/srv/a", "*", {"rw"}));
  EXPECT_EQ(readExportsLine("/srv/a b(ro) -rw"),
            (ExportsLine{"/srv/a", {{"b", {"ro"}}, {"*", {"rw"}}}}));
}

TEST(ReadExportsLine, ACommentEndsTheLineOnlyBetweenWords) {
  EXPECT_EQ(readExportsLine("/srv/a b(ro) # c(rw)"), oneClient("/srv/a", "b", {"ro"}));
  EXPECT_EQ(pathOf("/srv/a#b *(ro)"), "/srv/a#b");
  EXPECT_FALSE(readExportsLine("/srv/a b(ro)# c"));
  EXPECT_FALSE(readExportsLine("# /srv/a b(ro)"));
}

TEST(ReadExportsLine, AcceptsEmptyOptionListsAndTrailingComma) {
  EXPECT_EQ(readExportsLine("/srv/a b()"), oneClient("/srv/a", "b"));
  EXPECT_EQ(readExportsLine("/srv/a b(ro,)"), oneClient("/srv/a", "b", {"ro"}));
  EXPECT_FALSE(readExportsLine("/srv/a b(ro,,rw)"));
  EXPECT_FALSE(readExportsLine("/srv/a b(,rw)"));
}

TEST(ReadExportsLine, ReadsQuotes) {
  EXPECT_EQ(readExportsLine("\"/srv/a b\" \"c\"(ro)"), oneClient("/srv/a b", "c", {"ro"}));
  EXPECT_EQ(pathOf("/srv/\"a b\"c *"), "/srv/a bc");
  EXPECT_FALSE(readExportsLine("\"/srv/a b c(ro)"));
  EXPECT_FALSE(readExportsLine("/srv/a \"\" b(ro)"));
}

TEST(ReadExportsLine, ReadsOctalEscapes) {
  EXPECT_EQ(pathOf("/srv/a\\040b *"), "/srv/a b");
  EXPECT_EQ(pathOf("\"/srv/a\\042b\" *"), "/srv/a\"b");
  EXPECT_EQ(pathOf("/srv/\\303\\251 *"), "/srv/\xC3\xA9");
}

TEST(ReadExportsLine, InvalidEscapesStayLiteral) {
  EXPECT_EQ(pathOf("/srv/\\400 *"), "/srv/\\400");
  EXPECT_EQ(pathOf("/srv/\\x41 *"), "/srv/\\x41");
  EXPECT_EQ(pathOf("/srv/\\08a *"), "/srv/\\08a");
}

// Deliberate: nfs-utils examines the last four characters of its buffer, escapes included.
TEST(ReadExportsLine, EscapedBackslashBeforeDigitsStartsAnotherEscape) {
  EXPECT_EQ(pathOf("/srv/\\134040b *"), "/srv/ b");
  EXPECT_EQ(pathOf("/srv/\\134\\060\\064\\060b *"), "/srv/\\040b");
}

TEST(ReadExportsLine, ACarriageReturnEndsAWord) {
  EXPECT_EQ(readExportsLine("/srv/a b(ro)\r"), oneClient("/srv/a", "b", {"ro"}));
  EXPECT_EQ(readExportsLine("/srv/a b(ro) \r"), oneClient("/srv/a", "b", {"ro"}));
  EXPECT_EQ(readExportsLine("/srv/a\r"), oneClient("/srv/a"));
  EXPECT_FALSE(readExportsLine("/srv/a \fb(ro)"));
}

TEST(ReadExportsLine, ContinuedEntryIsReadToItsEnd) {
  const ExportsLine two = {"/srv/a", {{"b", {"ro"}}, {"c", {"rw"}}}};
  EXPECT_EQ(readExportsLine("/srv/a b(ro) \\\n  c(rw)"), two);
  EXPECT_EQ(readExportsLine("/srv/a \\\n\tb(ro) \\\n\\\nc(rw) # \\"), two);
  EXPECT_EQ(readExportsLine("\"/srv/a\"\\\nb(ro) \\\n c(rw) \\\n  "), two);
  EXPECT_EQ(readExportsLine("/srv/a b(ro) \\"), oneClient("/srv/a", "b", {"ro"}))
      << "the end of the file ends it";
  EXPECT_EQ(readExportsLine("\"/srv/a\nb\" c(rw)"), oneClient("/srv/a\nb", "c", {"rw"}));
}

TEST(ReadExportsLine, TwoEntriesAreNoExport) {
  EXPECT_FALSE(readExportsLine("/srv/a b(ro)\n/srv/c d(ro)"));
  EXPECT_FALSE(readExportsLine("# a \\\n/srv/c d(ro)"));
  EXPECT_FALSE(readExportsLine("/srv/a b(ro) # a \\\n/srv/c d(ro)"));
}

TEST(ReadExportsLine, WhatIsNoExport) {
  EXPECT_FALSE(readExportsLine(""));
  EXPECT_FALSE(readExportsLine("srv/a b(ro)"));
  EXPECT_FALSE(readExportsLine("\"\" b(ro)"));
  EXPECT_FALSE(readExportsLine("/srv/a b(ro"));
  EXPECT_FALSE(readExportsLine("/srv/a b("));
  EXPECT_FALSE(readExportsLine("/srv/a ("));
  EXPECT_FALSE(readExportsLine("/srv/a b(ro)c"));
  EXPECT_FALSE(readExportsLine("/srv/a b)"));
  EXPECT_FALSE(readExportsLine("/srv/a -ro -rw"));
  EXPECT_FALSE(readExportsLine("/srv/a b(mp=/a(b))"));
  EXPECT_FALSE(readExportsLine("/srv/\\377 *"));
  EXPECT_FALSE(readExportsLine("/srv/\\000 *"));
  EXPECT_FALSE(readExportsLine(std::string("/srv/a\0b *", 10)));
  EXPECT_FALSE(readExportsLine("/srv/a *\n/srv/b *"));
}

TEST(ReadExportsLine, WordsBeyondServerLimitAreRejected) {
  const std::string longest = "/" + std::string(1023, 'p');
  EXPECT_EQ(pathOf(longest + " *"), longest);
  EXPECT_FALSE(readExportsLine(longest + "p *"));
  EXPECT_TRUE(readExportsLine("/srv/a " + std::string(507, 'h') + "(ro)"));
  EXPECT_FALSE(readExportsLine("/srv/a " + std::string(508, 'h') + "(ro)"));
}

// An escape takes up four bytes of the server's buffer before it becomes one.
TEST(ReadExportsLine, TrailingEscapeCountsTowardsPathLimit) {
  EXPECT_TRUE(readExportsLine("/" + std::string(1020, 'p') + "\\040 *"));
  EXPECT_FALSE(readExportsLine("/" + std::string(1021, 'p') + "\\040 *"));
}

TEST(WriteExportsLine, WritesOneBlankBetweenTheParts) {
  EXPECT_EQ(writeExportsLine({"/srv/a", {{"a", {"rw", "sync"}}, {"b", {}}}}),
            "/srv/a a(rw,sync) b");
}

TEST(WriteExportsLine, EscapesWhatTheServerWouldReadDifferently) {
  EXPECT_EQ(writeExportsLine(oneClient("/srv/a b\t\n\"#\x7F")),
            "/srv/a\\040b\\011\\012\\042\\043\\177 *");
  EXPECT_EQ(writeExportsLine(oneClient("/srv/a,(b)-'\xC3\xA9")), "/srv/a,(b)-'\xC3\xA9 *");
}

TEST(WriteExportsLine, EscapesTheDigitsBehindABackslash) {
  EXPECT_EQ(writeExportsLine(oneClient("/srv/\\0401 7")), "/srv/\\134\\060\\064\\060\\061\\0407 *");
  EXPECT_EQ(writeExportsLine(oneClient("/srv/\\n1")), "/srv/\\134n1 *");
}

TEST(WriteExportsLine, EveryPathComesBackAsItWas) {
  const std::string alphabet = "/a \t\\\"#0147\n(,)\xC3\xA9";
  std::string path = "/";
  for (std::size_t first = 0; first < 13; ++first) {
    for (std::size_t second = 0; second < 13; ++second) {
      for (std::size_t third = 0; third < 13; ++third) {
        path = {'/', '\\', alphabet[first], alphabet[second], alphabet[third]};
        const ExportsLine line = oneClient(path);
        ASSERT_EQ(readExportsLine(writeExportsLine(line)), line) << path;
      }
    }
  }
}

TEST(ExportsLineFault, AnOrdinaryExportHasNone) {
  EXPECT_FALSE(exportsLineFault({"/srv/a b",
                                 {{"10.0.0.0/255.0.0.0", {"rw", "anonuid=-2"}},
                                  {"[a-z]?.example", {"sec=krb5:sys"}},
                                  {"fe80::1", {"mp=/srv/a#b"}}}}));
}

TEST(ExportsLineFault, PathsThatNoLineCanHold) {
  EXPECT_TRUE(exportsLineFault(oneClient("")));
  EXPECT_TRUE(exportsLineFault(oneClient("srv/a")));
  EXPECT_TRUE(exportsLineFault(oneClient(std::string("/srv\0a", 6))));
  EXPECT_TRUE(exportsLineFault(oneClient("/srv/\xFF")));
  EXPECT_TRUE(exportsLineFault(oneClient("/" + std::string(1024, 'p'))));
  EXPECT_TRUE(exportsLineFault(oneClient("/" + std::string(1021, 'p') + " ")));
}

TEST(ExportsLineFault, ExportWithoutClientsIsRefused) {
  EXPECT_EQ(exportsLineFault({"/srv/a", {}}), "the export has no client");
}

TEST(ExportsLineFault, HostsThatNoLineCanHold) {
  for (const char* host : {"", "-ro", "a b", "a\tb", "a\nb", "a(b", "a)", "\"a\"", "#a", "a#b",
                           "a,b", "a\\040", "a\x01", "\xFF"}) {
    EXPECT_TRUE(exportsLineFault(oneClient("/srv/a", host))) << host;
  }
  EXPECT_TRUE(exportsLineFault(oneClient("/srv/a", std::string(508, 'h'), {"ro"})));
}

TEST(ExportsLineFault, OptionsThatNoLineCanHold) {
  for (const char* option : {"", "r o", "ro\n", "ro)", "(ro", "ro,rw", "mp=\"/a\"", "mp=/a\\040b",
                             "mp=/a b", "ro\x01", "mp=/\xFF"}) {
    EXPECT_TRUE(exportsLineFault(oneClient("/srv/a", "*", {option}))) << option;
  }
}

TEST(ExportsLineFault, OptionUnknownToExportfsIsNamed) {
  EXPECT_EQ(exportsLineFault(oneClient("/srv/a", "*", {"ro", "bogus"})),
            "\"bogus\" is no export option");
}

TEST(ExportsLineFault, OneHostIsNamedOnce) {
  EXPECT_EQ(exportsLineFault({"/srv/a", {{"b", {"ro"}}, {"c", {}}, {"b", {"rw"}}}}),
            "the client b is named twice");
}

TEST(ExportOptions, KnowsTheOptionsOfExportsWithTheirValues) {
  for (const char* option : {"ro",
                             "rw",
                             "no_root_squash",
                             "all_squash",
                             "crossmnt",
                             "nohide",
                             "insecure",
                             "fsid=0",
                             "fsid=root",
                             "fsid=12345678-1234-1234-1234-123456789012",
                             "anonuid=99",
                             "anongid=-2",
                             "sec=krb5p:sys",
                             "mp",
                             "mp=/srv",
                             "mountpoint=/srv",
                             "refer=/a@b",
                             "replicas=/a@b+c",
                             "security_label",
                             "pnfs"}) {
    EXPECT_TRUE(isExportOption(option)) << option;
  }
}

TEST(ExportOptions, KnowsNothingElse) {
  for (const char* option : {"", "RO", "bogus", "fsid=", "fsid=abc", "anonuid=", "anonuid=x",
                             "sec=", "sec=bogus", "sec=sys:", "mp=", "refer=", "root_squash="}) {
    EXPECT_FALSE(isExportOption(option)) << option;
  }
}

TEST(ExportOptions, IdsAreNumbersOf32Bits) {
  EXPECT_TRUE(isExportOption("anonuid=4294967295"));
  for (const char* option : {"anonuid=4294967296", "anongid=4294967296", "anonuid=-2147483649",
                             "fsid=4294967296", "fsid=-1"}) {
    EXPECT_FALSE(isExportOption(option)) << option;
  }
}

TEST(ExportsNetwork, AnAddressWithAPrefixOrAMask) {
  for (const char* host :
       {"10.0.0.0/8", "10.0.0.0/0", "10.0.0.0/255.0.0.0", "2001:db8::/32", "2001:db8::1/128"}) {
    EXPECT_FALSE(exportsLineFault({"/srv/a", {{host, {"ro"}}}})) << host;
  }
  for (const char* host : {"10.0.0.0/33", "10.0.0.0/99", "10.0.0.0/-1", "10.0.0.0/", "10.0.0.0/x",
                           "10.0.0/8", "2001:db8::/129", "host/24", "/24"}) {
    EXPECT_TRUE(exportsLineFault({"/srv/a", {{host, {"ro"}}}})) << host;
  }
}

TEST(ExportsNetwork, SecurityFlavourHostsAreNoNetworks) {
  EXPECT_FALSE(exportsLineFault({"/srv/a", {{"gss/krb5p", {"ro"}}}}));
  EXPECT_TRUE(exportsLineFault({"/srv/a", {{"gss/other", {"ro"}}}}));
}

TEST(ReadExportsLine, BackslashEndingCommentBelongsToComment) {
  EXPECT_EQ(readExportsLine("/srv/a *(ro) # old \\"), (ExportsLine{"/srv/a", {{"*", {"ro"}}}}));
}

}  // namespace
}  // namespace paddock
