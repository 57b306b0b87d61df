#include "paddock_services/protocol_state.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

const ProtocolState kPhotos = ProtocolState::served("Photos");
const ProtocolState kStopped =
    ProtocolState::notServed("nfs-server is stopped", "systemctl start nfs-server");

TEST(ProtocolSentence, ListsServedProtocolsBeforeUnserved) {
  EXPECT_EQ(sentenceOf({{"SMB", kPhotos}, {"NFS", kStopped}}),
            "Shared over SMB as Photos, NFS: not served: nfs-server is stopped (systemctl start "
            "nfs-server)");
  EXPECT_EQ(sentenceOf({{"SMB", kStopped}, {"NFS", ProtocolState::served("*(rw)")}}),
            "Shared over NFS to *(rw), SMB: not served: nfs-server is stopped (systemctl start "
            "nfs-server)");
}

TEST(ProtocolSentence, NeverBeginsWithSharedWhenNothingIsServed) {
  EXPECT_EQ(sentenceOf({{"SMB", ProtocolState::notServed("smbd is stopped")}, {"NFS", {}}}),
            "SMB: not served: smbd is stopped");
}

TEST(ProtocolSentence, GroupsUnknownProtocolsByReason) {
  const ProtocolState tree = ProtocolState::unknown("it is a tree of its own");
  EXPECT_EQ(sentenceOf({{"SMB", tree}, {"NFS", tree}, {"VSP", ProtocolState::unknown("b", "c")}}),
            "SMB and NFS: not known: it is a tree of its own, VSP: not known: b (c)");
}

TEST(ProtocolSentence, NamesProtocolsThatNobodySpeaksLast) {
  EXPECT_EQ(sentenceOf({{"SMB", kPhotos},
                        {"VSP", ProtocolState::kept("Photos", "none")},
                        {"FTP", ProtocolState::kept("Photos", "none")}}),
            "Shared over SMB as Photos. Its names over VSP and FTP are kept, and no server of this "
            "system publishes them");
  EXPECT_EQ(sentenceOf({{"FTP", ProtocolState::kept("Photos", "none")}}),
            "Its name over FTP is kept, and no server of this system publishes it");
}

TEST(ProtocolSentence, IsEmptyWhenNothingIsShared) { EXPECT_EQ(sentenceOf({{"SMB", {}}}), ""); }

TEST(ProtocolState, IsADictionaryWithoutEmptyTexts) {
  EXPECT_EQ(dictionaryOf(kPhotos), (Dictionary{{"state", "served"}, {"as", "Photos"}}));
  EXPECT_EQ(dictionaryOf({}), (Dictionary{{"state", "not shared"}}));
  EXPECT_EQ(dictionaryOf(ProtocolState::unknown("a", "b")),
            (Dictionary{{"state", "unknown"}, {"reason", "a"}, {"advice", "b"}}));
}

}  // namespace
}  // namespace paddock
