// The array with its index does what a plain walk over a plain array does.
#include "exports/export_line_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/exports_parser_test_support.h"

namespace paddock {
namespace {

// The lines as a plain array, every operation a walk from its front.
class PlainLines {
 public:
  using Element = ExportLineArray::Element;

  void read(const std::string& text) {
    lines_.clear();
    bool inBlock = false;
    for (std::size_t at = 0;
         (at = text.find_first_not_of(" \t\r\n\v\f", at)) != std::string::npos;) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      const std::string line = text.substr(at, end - at) + "\n";
      at = end;
      if (line.find(kBeginMarker) == 0) {
        inBlock = true;
      } else if (line.find(kEndMarker) == 0) {
        inBlock = false;
      } else if (inBlock) {
        lines_.emplace_back(NFSExportRecord::recordWithNfsExportFileLine(line));
      } else {
        lines_.emplace_back(line);
      }
    }
  }

  NFSExportRecordPtr exportWithPath(const std::string& path) const {
    for (const Element& line : lines_) {
      const auto* record = std::get_if<NFSExportRecordPtr>(&line);
      if (record != nullptr && !(*record)->path().empty() && (*record)->path() == path) {
        return *record;
      }
    }
    return nullptr;
  }

  void removeExportWithPath(const std::string& path) {
    const auto found = exportWithPath(path);
    if (!found) return;
    std::erase_if(lines_, [&](const Element& line) {
      const auto* record = std::get_if<NFSExportRecordPtr>(&line);
      return record != nullptr && (*record)->identifier() == found->identifier();
    });
  }

  void addOrReplaceExport(const NFSExportRecordPtr& record) {
    removeExportWithPath(record->path());
    auto first = std::find_if(lines_.begin(), lines_.end(), isExport);
    if (first == lines_.end()) first = lines_.begin();
    lines_.insert(first, record);
  }

  std::string text() const {
    auto lines = lines_;
    const auto first = std::find_if(lines.begin(), lines.end(), isExport);
    const auto last = std::find_if(lines.rbegin(), lines.rend(), isExport);
    if (first != lines.end()) {
      const auto firstIndex = first - lines.begin();
      const auto lastIndex = lines.rend() - last - 1;
      lines.insert(lines.begin() + firstIndex, kBegin);
      lines.insert(lines.begin() + lastIndex + 2, kEnd);
    }
    std::string text;
    for (const Element& line : lines) {
      const auto* record = std::get_if<NFSExportRecordPtr>(&line);
      text += record == nullptr ? std::get<std::string>(line) : (*record)->nfsExportFileLine();
    }
    return text;
  }

  std::size_t exportCount() const {
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), isExport));
  }

 private:
  static bool isExport(const Element& line) {
    return std::holds_alternative<NFSExportRecordPtr>(line);
  }
  std::vector<Element> lines_;
};

class PlainWalk : public ParserTest, public testing::WithParamInterface<unsigned> {
 protected:
  std::size_t number(std::size_t below) { return random_() % below; }
  std::string path() { return "/srv/" + std::to_string(number(6)); }

  std::string randomLine() {
    switch (number(8)) {
      case 0:
        return kBegin;
      case 1:
        return kEnd;
      case 2:
        return "  # comment\n";
      case 3:
        return "\n";
      case 4:
        return path() + " broken(\n";
      default:
        return path() + " host" + std::to_string(number(3)) + "(rw)  # text\n";
    }
  }

  std::string randomFile() {
    std::string text;
    for (std::size_t line = number(20); line > 0; --line) text += randomLine();
    return text;
  }

  std::mt19937 random_{GetParam()};
};

// Each object belongs to both arrays, so that a change of its path shows in both.
TEST_P(PlainWalk, GivesTheSameBytes) {
  for (int file = 0; file < 20; ++file) {
    const std::string text = randomFile();
    const auto parser = parserOf(text);
    PlainLines plain;
    plain.read(text);
    for (int step = 0; step < 30; ++step) {
      const std::string at = path();
      const auto found = parser->exportWithPath(at);
      const auto expected = plain.exportWithPath(at);
      ASSERT_EQ(found == nullptr, expected == nullptr);
      if (found) {
        ASSERT_EQ(found->dictionary(), expected->dictionary());
      }
      switch (number(4)) {
        case 0:
          parser->removeExportWithPath(at);
          plain.removeExportWithPath(at);
          break;
        case 1:
          parser->addOrReplaceExport(exportTo(at, "new"));
          plain.addOrReplaceExport(exportTo(at, "new"));
          break;
        case 2:
          if (found) {
            const std::string renamed = path();
            found->setPath(renamed);
            expected->setPath(renamed);
          }
          break;
        default:
          if (found) {
            parser->addOrReplaceExport(found);
            plain.addOrReplaceExport(expected);
          }
      }
      ASSERT_EQ(parser->exportCount(), plain.exportCount());
      parser->writeFile();
      ASSERT_EQ(files_.contents(kFile), plain.text());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlainWalk, testing::Range(1U, 26U));

TEST(ExportLineArrays, RecordInTwoArraysFollowsPathChange) {
  ExportLineArray one;
  ExportLineArray two;
  const auto record = exportTo("/srv/a");
  one.append(record);
  two.append(record);
  EXPECT_EQ(one.firstWithPath("/srv/a"), record);
  EXPECT_EQ(two.firstWithPath("/srv/a"), record);
  record->setPath("/srv/b");
  EXPECT_EQ(one.firstWithPath("/srv/b"), record);
  EXPECT_EQ(two.firstWithPath("/srv/b"), record);
  EXPECT_EQ(one.firstWithPath("/srv/a"), nullptr);
}

}  // namespace
}  // namespace paddock
