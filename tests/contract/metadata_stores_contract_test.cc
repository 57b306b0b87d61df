// What metadata_stores.h promises.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "platform/linux/directory/linux_metadata_stores.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/in_memory_metadata_stores.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

using metadata_store::kLevelFSSearchOnly;
using metadata_store::kLevelOff;
using metadata_store::kLevelReadWrite;
using metadata_store::kSearchLevel;

using Paths = std::vector<std::string>;

class MetadataStoresContract : public ::testing::TestWithParam<bool> {
 protected:
  MetadataStoresContract() {
    if (GetParam())
      stores_ = std::make_unique<LinuxMetadataStores>(LinuxMetadataStoresOptions{
          .path = folder_.path("metadata-stores.sqlite"), .clock = &clock_});
    else
      stores_ = std::make_unique<InMemoryMetadataStores>();
  }
  Paths paths() {
    std::shared_ptr<const StorePaths> copy;
    EXPECT_EQ(stores_->copyStorePaths(copy), 0);
    return copy != nullptr ? copy->all() : Paths{"(null)"};
  }
  Dictionary attributes(const std::string& path) {
    Dictionary copy{{"stale", "x"}};
    EXPECT_EQ(stores_->copyStoreAttributes(path, copy), 0);
    return copy;
  }

  TestFolder folder_;
  FakeClock clock_;  // stands still
  std::unique_ptr<MetadataStores> stores_;
};

INSTANTIATE_TEST_SUITE_P(MetadataStores, MetadataStoresContract, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Linux" : "InMemory"; });

TEST_P(MetadataStoresContract, AtFirstThereIsNoStore) { EXPECT_EQ(paths(), Paths()); }

TEST_P(MetadataStoresContract, ACreatedStoreHasItsAttributes) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelReadWrite}}), 0);
  EXPECT_EQ(stores_->createStore("/srv/b", {}), 0);
  EXPECT_EQ(paths(), (Paths{"/srv/a", "/srv/b"}));
  EXPECT_EQ(attributes("/srv/a"), (Dictionary{{kSearchLevel, kLevelReadWrite}}));
  EXPECT_EQ(attributes("/srv/b"), Dictionary());
}

TEST_P(MetadataStoresContract, PathsAreByteOrderedAndMatchExactly) {
  for (const char* path : {"/srv/b", "/srv/\xC3\xA4", "/srv/a b", "/", "/srv/\xFF", "/srv/it's"})
    EXPECT_EQ(stores_->createStore(path, {}), 0);
  EXPECT_EQ(paths(), (Paths{"/", "/srv/a b", "/srv/b", "/srv/it's", "/srv/\xC3\xA4", "/srv/\xFF"}));
  std::shared_ptr<const StorePaths> copy;
  EXPECT_EQ(stores_->copyStorePaths(copy), 0);
  EXPECT_TRUE(copy->contains("/srv/\xFF"));
  EXPECT_FALSE(copy->contains("/SRV/B"));
  EXPECT_FALSE(copy->contains("/srv/b/"));
}

TEST_P(MetadataStoresContract, APathHasOneStore) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelOff}}), 0);
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelReadWrite}}), EEXIST);
  EXPECT_EQ(attributes("/srv/a"), (Dictionary{{kSearchLevel, kLevelOff}}));
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
}

TEST_P(MetadataStoresContract, AttributesAreMerged) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelOff}, {"other", "kept"}}), 0);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {{kSearchLevel, kLevelFSSearchOnly}}), 0);
  EXPECT_EQ(attributes("/srv/a"),
            (Dictionary{{kSearchLevel, kLevelFSSearchOnly}, {"other", "kept"}}));
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {{"new", "n"}, {"other", ""}}), 0);
  EXPECT_EQ(attributes("/srv/a"),
            (Dictionary{{kSearchLevel, kLevelFSSearchOnly}, {"new", "n"}, {"other", ""}}));
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {}), 0);
  EXPECT_EQ(attributes("/srv/a").size(), 3U);
}

TEST_P(MetadataStoresContract, AttributesOfOtherStoresStay) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelOff}}), 0);
  EXPECT_EQ(stores_->createStore("/srv/A", {{kSearchLevel, kLevelOff}}), 0);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/A", {{kSearchLevel, kLevelReadWrite}}), 0);
  EXPECT_EQ(attributes("/srv/a"), (Dictionary{{kSearchLevel, kLevelOff}}));
}

TEST_P(MetadataStoresContract, TextsAreKeptByteForByte) {
  const Dictionary texts{{"\"quoted\"", "\\\"\n\t\x01"}, {"$.a[0]", "{\"x\":1}"}, {"ä", "\u20AC"}};
  EXPECT_EQ(stores_->createStore("/srv/a", texts), 0);
  EXPECT_EQ(attributes("/srv/a"), texts);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {{"ä", "null"}}), 0);
  EXPECT_EQ(*attributes("/srv/a").string("ä"), "null");
}

TEST_P(MetadataStoresContract, APathWithoutAStoreHasNoAttributes) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelOff}}), 0);
  for (const std::string& path : {std::string("/srv"), std::string("/srv/a/"), std::string()}) {
    Dictionary copy{{"stale", "x"}};
    EXPECT_EQ(stores_->copyStoreAttributes(path, copy), ENOENT);
    EXPECT_EQ(copy, Dictionary());
  }
  EXPECT_EQ(stores_->setStoreAttributes("/srv", {{kSearchLevel, kLevelOff}}), ENOENT);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
}

TEST_P(MetadataStoresContract, ArgumentsThatNoStoreCanHaveAreRefused) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{kSearchLevel, kLevelOff}}), 0);
  EXPECT_EQ(stores_->createStore("", {}), EINVAL);
  EXPECT_EQ(stores_->createStore("srv", {}), EINVAL);
  EXPECT_EQ(stores_->createStore("/srv/b", {{kSearchLevel, kLevelOff}, {"number", 1}}), EINVAL);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {{kSearchLevel, true}}), EINVAL);
  EXPECT_EQ(stores_->setStoreAttributes("", {}), EINVAL);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  EXPECT_EQ(attributes("/srv/a"), (Dictionary{{kSearchLevel, kLevelOff}}));
}

TEST_P(MetadataStoresContract, ACopyStaysAsItWas) {
  EXPECT_EQ(stores_->createStore("/srv/a", {}), 0);
  std::shared_ptr<const StorePaths> copy;
  EXPECT_EQ(stores_->copyStorePaths(copy), 0);
  EXPECT_EQ(stores_->createStore("/srv/b", {}), 0);
  EXPECT_EQ(copy->all(), (Paths{"/srv/a"}));
  EXPECT_FALSE(copy->contains("/srv/b"));
  EXPECT_EQ(paths(), (Paths{"/srv/a", "/srv/b"}));
  stores_.reset();
  EXPECT_TRUE(copy->contains("/srv/a"));
}

TEST_P(MetadataStoresContract, CopiesOfWhatDidNotChangeAreOne) {
  EXPECT_EQ(stores_->createStore("/srv/a", {}), 0);
  std::shared_ptr<const StorePaths> first;
  std::shared_ptr<const StorePaths> second;
  EXPECT_EQ(stores_->copyStorePaths(first), 0);
  EXPECT_EQ(stores_->copyStorePaths(second), 0);
  EXPECT_EQ(first, second);
}

}  // namespace
}  // namespace paddock::contract
