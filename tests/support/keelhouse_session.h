// A session with a scripted daemon, for tests of what asks it on the way.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "keelhouse/access/principals.h"
#include "keelhouse/core/session.h"
#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {

// Of ids without an account here.
inline constexpr const char* kUserGuid = "2918733C-ACBF-4C23-AD09-B8FC7FFF0001";
inline constexpr const char* kGroupGuid = "8872134E-C1BC-44B8-8DF6-B2927FFF0002";
// Of no account: not derived from an id.
inline constexpr const char* kOtherGuid = "11111111-2222-4333-8444-555555555555";
// Of users and groups that every system has.
inline constexpr const char* kRootGuid = "2918733C-ACBF-4C23-AD09-B8FC00000000";
inline constexpr const char* kNobodyGuid = "2918733C-ACBF-4C23-AD09-B8FC0000FFFE";
inline constexpr const char* kNogroupGuid = "8872134E-C1BC-44B8-8DF6-B2920000FFFE";

class SessionFixture : public ::testing::Test {
 protected:
  // The answers to the lists of the users' and of the groups' records.
  void answerRecords(const std::string& users, const std::string& groups) {
    daemon_.answer(R"({"status":0,"records":[)" + users + "]}");
    daemon_.answer(R"({"status":0,"records":[)" + groups + "]}");
  }
  static std::string userRecord(const std::string& name, const std::string& uid,
                                const std::string& guid = {}) {
    return recordText(name, "UniqueID", uid, guid);
  }
  static std::string groupRecord(const std::string& name, const std::string& gid,
                                 const std::string& guid = {}) {
    return recordText(name, "PrimaryGroupID", gid, guid);
  }

  static Guid guid(const char* text) { return *parseGuid(text); }

  TestFolder folder_;
  testing::ScriptedDaemon daemon_{folder_.path()};
  DaemonClient client_{daemon_.socketPath()};
  std::ostringstream out_;
  std::ostringstream notes_;
  Session session_{client_, out_, notes_};
  Principals principals_{session_};

 private:
  static std::string recordText(const std::string& name, const std::string& idAttribute,
                                const std::string& id, const std::string& guid) {
    std::string text = R"({"dsAttrTypeStandard:RecordName":[")" + name + R"("])";
    if (!id.empty()) text += R"(,"dsAttrTypeStandard:)" + idAttribute + R"(":[")" + id + R"("])";
    if (!guid.empty()) text += R"(,"dsAttrTypeStandard:GeneratedUID":[")" + guid + R"("])";
    return text + "}";
  }
};

}  // namespace paddock::keelhouse
