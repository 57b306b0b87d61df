#include "store/served_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/services.h"
#include "platform/testing/recording_logger.h"
#include "platform/testing/recording_plugin_commands.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ServedReport : public ::testing::Test {
 protected:
  ServedReport() {
    services_.logger = &logger_;
    services_.pluginCommands = &commands_;
  }

  void answer(Dictionary reply) {
    commands_.setPlugin("paddock_services", [reply](const Dictionary&) { return reply; });
  }
  static Dictionary state(const char* path, bool isShared, bool isServed, const char* sentence) {
    return {{"path", path}, {"isShared", isShared}, {"isServed", isServed}, {"sentence", sentence}};
  }
  void write(std::size_t count) {
    const ServicesGuard guard(services_);
    std::vector<SharePointRecord> sharePoints;
    for (std::size_t number = 0; number < count; ++number) {
      sharePoints.push_back(SharePointRecord::record());
      sharePoints.back().setPath("/srv/" + std::to_string(number));
    }
    log_what_is_served(sharePoints);
  }
  static Dictionary served(Dictionary state) {
    state.set("protocols", Dictionary{{"smb", Dictionary{{"state", "served"}}}});
    return state;
  }
  // "PRIORITY text".
  std::vector<std::string> logged() const {
    std::vector<std::string> lines;
    for (const auto& line : logger_.lines())
      lines.push_back(std::to_string(line.priority) + " " + line.text);
    return lines;
  }

  RecordingLogger logger_;
  RecordingPluginCommands commands_;
  Services services_;
};

TEST_F(ServedReport, ServedIsInformationAndTheRestAWarning) {
  answer({{"sharePoints",
           Array{state("/srv/0", true, true, "Shared over SMB as a"),
                 state("/srv/1", true, false, "NFS: not served: it is stopped"),
                 served(state("/srv/2", false, true, "Shared over SMB as b")),
                 state("/srv/3", true, true, ""), state("/srv/4", false, true, ""), Value(7),
                 state("/srv/5", false, false, "SMB: not known: nobody answers")}}});
  write(5);
  EXPECT_THAT(logged(),
              ElementsAre("6 paddock_sharing: /srv/0: Shared over SMB as a",
                          "4 paddock_sharing: /srv/1: NFS: not served: it is stopped",
                          "4 paddock_sharing: /srv/2 is not shared, and still served: Shared over "
                          "SMB as b",
                          "4 paddock_sharing: /srv/5 is not shared; who may serve it still: SMB: "
                          "not known: nobody answers"));
}

TEST_F(ServedReport, AsksOfThePathsDuringTheChange) {
  write(2);
  ASSERT_EQ(commands_.sent().size(), 1U);
  EXPECT_EQ(commands_.sent()[0].module, "paddock_services");
  EXPECT_EQ(commands_.sent()[0].command, (Dictionary{{"command", "getServed"},
                                                     {"paths", Array{"/srv/0", "/srv/1"}},
                                                     {"duringChange", true}}));
}

TEST_F(ServedReport, AsksNobodyWithoutSharePoints) {
  write(0);
  EXPECT_THAT(commands_.sent(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ServedReport, RecordsWithoutAnAbsolutePathAreNotAskedOf) {
  const ServicesGuard guard(services_);
  std::vector<SharePointRecord> sharePoints(3, SharePointRecord::record());
  sharePoints[1].setPath("srv/relative");
  sharePoints[2].setPath("/srv/a");
  log_what_is_served(sharePoints);
  ASSERT_EQ(commands_.sent().size(), 1U);
  EXPECT_EQ(*commands_.sent()[0].command.array("paths"), Array{"/srv/a"});
  sharePoints.pop_back();
  log_what_is_served(sharePoints);
  EXPECT_EQ(commands_.sent().size(), 1U);
}

TEST_F(ServedReport, WhatCannotBeAskedIsNotKnown) {
  write(1);
  answer({{"error", "no such plug-in"}});
  write(1);
  commands_.setPlugin("paddock_services",
                      [](const Dictionary&) -> Dictionary { throw std::runtime_error("away"); });
  write(1);
  EXPECT_THAT(logged(),
              ElementsAre("4 paddock_sharing: whether the share points are served is not known",
                          "4 paddock_sharing: whether the share points are served is not known: no "
                          "such plug-in",
                          "4 paddock_sharing: whether the share points are served is not known: "
                          "away"));
}

TEST_F(ServedReport, AsksOfTheFirstHundredAlone) {
  answer({{"sharePoints", Array{}}});
  write(103);
  EXPECT_EQ(commands_.sent()[0].command.array("paths")->size(), 100U);
  EXPECT_THAT(logged(), ElementsAre("6 paddock_sharing: whether the other 3 share points are "
                                    "served: keelhouse share list --check"));
}

}  // namespace
}  // namespace paddock
