#include "wire/property_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "wire/random_tree.h"

namespace paddock::wire {
namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;
using testing::StartsWith;

std::optional<Value> parse(std::string_view text) {
  std::string error;
  auto value = parsePropertyList(text, error);
  EXPECT_EQ(value.has_value(), error.empty()) << text << ": " << error;
  return value;
}

std::string errorOf(std::string_view text) {
  std::string error;
  EXPECT_FALSE(parsePropertyList(text, error)) << text;
  return error;
}

std::string list(std::string_view content) {
  return "<plist version=\"1.0\">" + std::string(content) + "</plist>";
}

std::string nested(std::size_t levels) {
  std::string text;
  for (std::size_t level = 0; level < levels; ++level) text += "<array>";
  for (std::size_t level = 0; level < levels; ++level) text += "</array>";
  return list(text);
}

TEST(PropertyList, ReadsEveryKind) {
  EXPECT_EQ(parse("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
                  "<key>a</key><array><integer>-7</integer><true/><false/></array>\n"
                  "<key>d</key><data>\n Zm\n 9v </data><key>e</key><dict/><key>s</key>"
                  "<string></string></dict></plist>\n"),
            Value(Dictionary{{"a", Array{-7, true, false}},
                             {"d", Data{{'f', 'o', 'o'}}},
                             {"e", Dictionary{}},
                             {"s", ""}}));
}

TEST(PropertyList, WritesDeclarationWithoutDocumentType) {
  EXPECT_EQ(writePropertyList(Dictionary{{"a", Array{1, true}}, {"d", Data{{'f'}}}}),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
            "  <key>a</key>\n  <array>\n    <integer>1</integer>\n    <true/>\n  </array>\n"
            "  <key>d</key>\n  <data>Zg==</data>\n</dict>\n</plist>\n");
}

TEST(PropertyList, RoundTripsWrittenValues) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    const Value tree = RandomTree(seed).value();
    EXPECT_EQ(parse(writePropertyList(tree)), tree) << seed;
  }
}

TEST(PropertyList, ReadsSignedAndUnsignedIntegerRanges) {
  const auto integer = [](std::string_view digits) {
    return parse(list("<integer>" + std::string(digits) + "</integer>"));
  };
  EXPECT_EQ(integer("-9223372036854775808"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(integer("+5"), Value(5));
  EXPECT_EQ(integer("007"), Value(7));
  EXPECT_EQ(integer("18446744073709551615"), Value(std::numeric_limits<std::uint64_t>::max()));
}

TEST(PropertyList, RefusesInvalidIntegers) {
  for (const std::string text : {"", " 1", "1 ", "0x10", "1.0", "1e3", "--1", "+-1", "++1",
                                 "18446744073709551616", "-9223372036854775809", "+", "-"}) {
    EXPECT_THAT(errorOf(list("<integer>" + text + "</integer>")),
                HasSubstr("not a decimal integer"));
  }
}

TEST(PropertyList, SkipsDocumentTypeNamingExternalIdentifier) {
  for (const std::string type :
       {R"(PUBLIC "-//Example//DTD PLIST 1.0//EN" "http://plist.example/PropertyList-1.0.dtd")",
        R"(PUBLIC '' '[<!ENTITY a "b">]>')", R"(SYSTEM "file:///etc/passwd")",
        "\n SYSTEM\t'a\"b' \r\n"}) {
    const std::string declared = "<!DOCTYPE plist " + type + ">\n" + list("<integer>7</integer>");
    EXPECT_EQ(parse(declared), Value(7)) << type;
    EXPECT_EQ(parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c -->" + declared), Value(7));
  }
}

TEST(PropertyList, RefusesEveryOtherDocumentType) {
  const std::string identifier = R"(PUBLIC "-//Example//DTD PLIST//EN" "http://plist.example/a")";
  for (const std::string& type :
       {std::string("plist"), std::string("plist []"), std::string("plist [<!ENTITY a \"aaaa\">]"),
        "plist " + identifier + " [ ]",
        "plist " + identifier + "[<!ENTITY a SYSTEM \"file:///etc/passwd\">]",
        "plist " + identifier + " x", "html " + identifier, "plists " + identifier,
        "Plist " + identifier, std::string("plist PUBLIC \"a\""),
        std::string("plist PUBLIC \"a\"\"b\""), std::string("plist PUBLIC a \"b\""),
        std::string("plist SYSTEM"), std::string("plist SYSTEM\"a\""),
        std::string("plist SYSTEM \"a\" \"b\""), std::string("plist system \"a\""),
        std::string()}) {
    EXPECT_THAT(errorOf("<!DOCTYPE " + type + ">" + list("<string>&a;</string>")),
                HasSubstr("document type"))
        << type;
  }
  EXPECT_NE(errorOf("<!DOCTYPEplist " + identifier + ">" + list("<dict/>")), "");
  EXPECT_NE(errorOf("<!DOCTYPE plist SYSTEM \"a>" + list("<dict/>")), "");
}

TEST(PropertyList, RefusesMisplacedDocumentTypes) {
  const std::string type = "<!DOCTYPE plist SYSTEM \"a\">";
  EXPECT_THAT(errorOf(type + type + list("<dict/>")), HasSubstr("document type"));
  EXPECT_THAT(errorOf(list("<dict/>") + type), HasSubstr("document type"));
  EXPECT_NE(errorOf("<plist>" + type + "<dict/></plist>"), "");
  EXPECT_NE(errorOf(type + "<?xml version=\"1.0\"?>" + list("<dict/>")), "");
  EXPECT_NE(errorOf("<!ENTITY a \"b\">" + list("<dict/>")), "");
}

TEST(PropertyList, DocumentTypeDefinesNoEntity) {
  EXPECT_THAT(errorOf("<!DOCTYPE plist SYSTEM \"a\">" + list("<string>&a;</string>")),
              HasSubstr("entity"));
}

TEST(PropertyList, RefusesUnknownEntitiesAndBareAmpersands) {
  for (const std::string text : {"&nbsp;", "a & b", "&", "&;", "&#0;", "&#xD800;", "&#x110000;",
                                 "&#;", "&#-1;", "&#xFFFE;", "&#8;", "&#99999999999;", "&#X41;"}) {
    EXPECT_THAT(errorOf(list("<string>" + text + "</string>")), HasSubstr("entity")) << text;
  }
}

TEST(PropertyList, ResolvesPredefinedEntitiesAndCharacterReferences) {
  EXPECT_EQ(parse(list("<string>&lt;&gt;&amp;&quot;&apos;&#65;&#xe9;&#x1F40E;&#13;</string>")),
            Value("<>&\"'A\xC3\xA9\xF0\x9F\x90\x8E\r"));
  EXPECT_EQ(parse(list("<string>&amp;lt;</string>")), Value("&lt;"));
}

TEST(PropertyList, KeepsStringWhiteSpaceAndNormalisesLineEnds) {
  EXPECT_EQ(parse(list("<string>  a\r\nb\rc\td \n</string>")), Value("  a\nb\nc\td \n"));
  EXPECT_EQ(parse(list("<string>  </string>")), Value("  "));
  EXPECT_EQ(parse(list("<dict><key> k </key><true/></dict>")), Value(Dictionary{{" k ", true}}));
}

TEST(PropertyList, ReadsCharacterDataSectionsAndSkipsComments) {
  EXPECT_EQ(parse(list("<!-- c --><string>a<!-- & -->b<![CDATA[<&amp;>]]></string>")),
            Value("ab<&amp;>"));
}

TEST(PropertyList, RefusesUnknownElementsAndAttributes) {
  for (const std::string text : {"<real>1.5</real>", "<date>2020-01-01T00:00:00Z</date>", "<Dict/>",
                                 "<key>a</key>", "<plist/>"}) {
    EXPECT_THAT(errorOf(list(text)), HasSubstr("is not known")) << text;
  }
  EXPECT_THAT(errorOf(list("<dict x=\"1\"/>")), HasSubstr("attribute"));
  EXPECT_THAT(errorOf("<plist version=\"1.0\" x=\"1\"><dict/></plist>"), HasSubstr("attribute"));
  EXPECT_EQ(parse("<plist><dict/></plist>"), Value(Dictionary{}));
}

TEST(PropertyList, RefusesInvalidDocumentStructure) {
  for (const std::string text :
       {"", " ", "x", "<dict/>", "<plist/>", "<plist><dict/><dict/></plist>",
        "<plist><dict/></plist><plist><dict/></plist>", "x<plist><dict/></plist>",
        "<plist><dict/></plist>x", "<plist>x<dict/></plist>", "<plist><dict></plist>",
        "<plist><dict/>", "<plist><array>x</array></plist>",
        "<plist><string><true/></string></plist>", "<plist><true>x</true></plist>",
        "<plist><true><true/></true></plist>", "<plist><![CDATA[ ]]><dict/></plist>"}) {
    EXPECT_THAT(errorOf(text), StartsWith("line 1, column ")) << text;
  }
}

TEST(PropertyList, RefusesUnpairedKeys) {
  EXPECT_THAT(errorOf(list("<dict><key>a</key></dict>")), HasSubstr("without a value"));
  EXPECT_THAT(errorOf(list("<dict><true/></dict>")), HasSubstr("without a key"));
  EXPECT_THAT(errorOf(list("<dict><key>a</key><key>b</key><true/></dict>")),
              HasSubstr("\"key\" is not known"));
  EXPECT_THAT(errorOf(list("<dict><key>a</key><true/><key>&#97;</key><true/></dict>")),
              HasSubstr("\"a\" is there twice"));
}

TEST(PropertyList, RefusesInvalidUtf8OrXmlWithPosition) {
  EXPECT_EQ(errorOf("<plist>\n<string>\xFF</string></plist>"),
            "line 2, column 9: the text is not UTF-8");
  EXPECT_EQ(errorOf("<plist><string>\0</string></plist>"sv),
            "line 1, column 16: a character that XML does not allow");
  EXPECT_THAT(errorOf(list("<string>\x01</string>")), HasSubstr("XML does not allow"));
  EXPECT_THAT(errorOf(list("<string>\xEF\xBF\xBE</string>")), HasSubstr("XML does not allow"));
  EXPECT_NE(errorOf("\xFE\xFF\0<\0p"sv), "");
}

TEST(PropertyList, RefusesOtherEncodings) {
  EXPECT_THAT(errorOf("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + list("<dict/>")),
              HasSubstr("UTF-8"));
  EXPECT_EQ(parse("\xEF\xBB\xBF<?xml version=\"1.0\"?>" + list("<dict/>")), Value(Dictionary{}));
}

TEST(PropertyList, RefusesDataWithInvalidBase64) {
  EXPECT_THAT(errorOf(list("<data>Zg=</data>")), HasSubstr("not base64"));
}

TEST(PropertyList, LimitsNestingToSixtyFourLevels) {
  EXPECT_TRUE(parse(nested(64)));
  EXPECT_THAT(errorOf(nested(65)), HasSubstr("deeper than 64"));
  EXPECT_THAT(errorOf(nested(200000)), HasSubstr("deeper than 64"));
}

TEST(PropertyList, WritesUnrepresentableBytesAsHexadecimal) {
  EXPECT_THAT(writePropertyList(Value("a\0\x01\xFFz\xEF\xBF\xBF\r"sv)),
              HasSubstr("<string>a\\x00\\x01\\xFFz\\xEF\\xBF\\xBF&#13;</string>"));
}

TEST(PropertyList, FitsOnlyExactlyRepresentableValues) {
  const Value exact = Dictionary{{"tab\t", Array{"line\n", "return\r", "\xC3\xA9", 1, true}},
                                 {"data", Data{{'\x01'}}}};
  EXPECT_TRUE(fitsPropertyList(exact));
  EXPECT_EQ(parse(writePropertyList(exact)), exact);
  for (const std::string_view text : {"\0"sv, "a\x1Bz"sv, "\xFF"sv, "\xEF\xBF\xBF"sv}) {
    EXPECT_FALSE(fitsPropertyList(Dictionary{{"a", Array{1, text}}})) << text;
    EXPECT_FALSE(fitsPropertyList(Array{Dictionary{{std::string(text), 1}}})) << text;
  }
}

}  // namespace
}  // namespace paddock::wire
