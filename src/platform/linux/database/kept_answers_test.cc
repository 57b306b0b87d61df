#include "platform/linux/database/kept_answers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/directory.h"
#include "platform/linux/directory/local_database.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

DatabaseState state(std::int64_t changed = 1) {
  DatabaseState state{{1, 2}, 4096, 1, changed, {}};
  state.mark[0] = 1;
  state.mark[1] = 1;
  return state;
}

Array answer(const std::string& name) { return {Dictionary{{schema::kRecordName, Array{name}}}}; }

TEST(KeptSearchAnswers, HoldInStateWhereFound) {
  KeptAnswers kept;
  EXPECT_EQ(kept.find(state(), "key"), std::nullopt);
  kept.keep(state(), state(), "key", answer("anna"));
  kept.keep(state(), state(), "none", {});
  EXPECT_EQ(kept.find(state(), "key"), answer("anna"));
  EXPECT_EQ(kept.find(state(), "none"), Array{});
  EXPECT_EQ(kept.find(state(), "other"), std::nullopt);
}

TEST(KeptSearchAnswers, DoNotHoldInAnotherState) {
  KeptAnswers kept;
  kept.keep(state(), state(), "key", answer("anna"));
  std::vector<DatabaseState> others(6, state());
  others[0].file.inode = 3;
  others[1].file.device = 3;
  others[2].size = 8192;
  others[3].modified = 2;
  others[4].changed = 2;
  others[5].mark[9] = 1;
  for (const DatabaseState& other : others) EXPECT_EQ(kept.find(other, "key"), std::nullopt);
  kept.keep(state(2), state(2), "key", answer("bert"));
  EXPECT_EQ(kept.find(state(2), "key"), answer("bert"));
  EXPECT_EQ(kept.find(state(), "key"), std::nullopt) << "that one is over";
}

TEST(KeptSearchAnswers, AreNotKeptFromChangingState) {
  KeptAnswers kept;
  kept.keep(state(1), state(2), "key", answer("anna"));
  EXPECT_EQ(kept.find(state(1), "key"), std::nullopt);
  EXPECT_EQ(kept.find(state(2), "key"), std::nullopt);
}

TEST(KeptSearchAnswers, AreNotKeptWhereCommitsAreInvisible) {
  for (const int byte : {0, 1}) {
    DatabaseState logging = state();
    logging.mark[static_cast<std::size_t>(byte)] = 2;
    KeptAnswers kept;
    kept.keep(logging, logging, "key", answer("anna"));
    EXPECT_EQ(kept.find(logging, "key"), std::nullopt);
  }
}

TEST(KeptSearchAnswers, AreSmall) {
  KeptAnswers kept;
  kept.keep(state(), state(), "key", answer(std::string(KeptAnswers::kLargest, 'x')));
  EXPECT_EQ(kept.find(state(), "key"), std::nullopt);
}

TEST(KeptSearchAnswers, AreDroppedWhenTheyAreTooMany) {
  KeptAnswers kept;
  for (std::size_t number = 0; number <= KeptAnswers::kCapacity; ++number)
    kept.keep(state(), state(), std::to_string(number), answer("x"));
  EXPECT_EQ(kept.find(state(), "0"), std::nullopt);
  EXPECT_NE(kept.find(state(), std::to_string(KeptAnswers::kCapacity)), std::nullopt);
}

TEST(KeptSearchAnswers, KeysOfDifferentSearchesDiffer) {
  const std::vector<std::string> keys = {
      KeptAnswers::keyOf({"a", "b"}, "c", "d"), KeptAnswers::keyOf({"ab"}, "c", "d"),
      KeptAnswers::keyOf({"b", "a"}, "c", "d"), KeptAnswers::keyOf({"a"}, "c", "d"),
      KeptAnswers::keyOf({"a", "b"}, "cd", ""), KeptAnswers::keyOf({"a", "b"}, "", "cd"),
      KeptAnswers::keyOf({"a", "b"}, "c", "D"), KeptAnswers::keyOf({}, "c", "d"),
      KeptAnswers::keyOf({"1:a"}, "c", "d"),    KeptAnswers::keyOf({"d"}, "c", ""),
  };
  for (std::size_t one = 0; one < keys.size(); ++one)
    for (std::size_t other = 0; other < one; ++other) EXPECT_NE(keys[one], keys[other]);
}

// On a database: an answer is stored on arrival although the file is not readable.

class DatabaseSearches : public ::testing::Test {
 protected:
  DatabaseSearches() { addUser("anna", "5001"); }

  void addUser(const std::string& name, const std::string& id) {
    database_.use([&](LocalStore& store) {
      store.change(store.create(name, schema::kUsers), {{schema::kUniqueID, {id}}});
    });
  }
  // The name of the user with the id; empty when there is none.
  std::string nameOf(const std::string& id) {
    const Array found = database_.recordsWithValue({schema::kUsers}, schema::kUniqueID, id);
    if (found.empty()) return {};
    return *found.front().dictionary()->array(schema::kRecordName)->front().string();
  }
  void byAnotherProgram(const std::string& sql) { SqliteConnection(path_).execute(sql); }
  bool isKept(const std::string& id, const std::string& name) {
    SqliteConnection other(path_);
    other.execute("BEGIN EXCLUSIVE");
    bool kept = false;
    try {
      kept = nameOf(id) == name;
    } catch (const DirectoryError&) {
      kept = false;
    }
    other.execute("ROLLBACK");
    return kept;
  }

  TestFolder folder_;
  const std::string path_ = folder_.path("directory.sqlite");
  LocalDatabase database_{path_, std::chrono::milliseconds(0)};
};

TEST_F(DatabaseSearches, AreAnsweredFromWhatWasFoundBefore) {
  EXPECT_FALSE(isKept("5001", "anna")) << "not found yet";
  EXPECT_EQ(nameOf("5001"), "anna");
  EXPECT_TRUE(isKept("5001", "anna"));
  EXPECT_EQ(nameOf("5002"), "");
  EXPECT_TRUE(isKept("5002", ""));
}

TEST_F(DatabaseSearches, SeeOwnChanges) {
  EXPECT_EQ(nameOf("5002"), "");
  addUser("bert", "5002");
  EXPECT_EQ(nameOf("5002"), "bert");
  database_.use([](LocalStore& store) { store.remove(*store.find("bert", schema::kUsers)); });
  EXPECT_EQ(nameOf("5002"), "");
}

TEST_F(DatabaseSearches, SeeEveryCommitOfAnotherProgram) {
  constexpr int kCommits = 500;
  EXPECT_EQ(nameOf("5001"), "anna");
  for (int number = 0; number < kCommits; ++number) {
    const std::string name = "anna" + std::to_string(number);
    byAnotherProgram("UPDATE vals SET value = '" + name + "' WHERE position = 0");
    ASSERT_EQ(nameOf("5001"), name);
    ASSERT_EQ(nameOf("5001"), name);
  }
}

TEST_F(DatabaseSearches, GoOnlyForwardWhileAnotherProgramCommits) {
  byAnotherProgram("UPDATE vals SET value = '0' WHERE position = 0");
  const std::jthread writer([this] {
    SqliteConnection other(path_);
    other.setBusyTimeout(std::chrono::seconds(10));
    for (int number = 1; number <= 200; ++number)
      other.execute("UPDATE vals SET value = '" + std::to_string(number) + "' WHERE position = 0");
  });
  LocalDatabase patient(path_);
  int last = 0;
  while (last < 200) {
    Array found;
    try {
      found = patient.recordsWithValue({schema::kUsers}, schema::kUniqueID, "5001");
    } catch (const DirectoryError& error) {
      ASSERT_EQ(error.status(), EBUSY);  // the writer leaves no gap on a slow disk
      continue;
    }
    const Array* names = found.front().dictionary()->array(schema::kRecordName);
    const int number = std::stoi(*names->front().string());
    ASSERT_GE(number, last);
    last = number;
  }
}

TEST_F(DatabaseSearches, AreNotKeptUnderWriteAheadLog) {
  EXPECT_EQ(nameOf("5001"), "anna");
  byAnotherProgram("PRAGMA journal_mode = WAL");
  SqliteConnection other(path_);
  for (const char* name : {"one", "two", "three"}) {
    other.execute(std::string("UPDATE vals SET value = '") + name + "' WHERE position = 0");
    EXPECT_EQ(nameOf("5001"), name);
    EXPECT_EQ(nameOf("5001"), name);
  }
}

TEST_F(DatabaseSearches, SeeAnotherFileAtThePath) {
  EXPECT_EQ(nameOf("5001"), "anna");
  std::filesystem::remove(path_);
  EXPECT_EQ(nameOf("5001"), "");
}

TEST_F(DatabaseSearches, SeeACopyThatWasPutBack) {
  const std::string copy = readWholeFile(path_);
  addUser("bert", "5002");
  EXPECT_EQ(nameOf("5002"), "bert");
  writeWholeFile(path_, copy);
  EXPECT_EQ(nameOf("5002"), "");
}

TEST_F(DatabaseSearches, AreNotAnsweredOverADamagedFile) {
  EXPECT_EQ(nameOf("5001"), "anna");
  writeWholeFile(path_, std::string(8192, 'x'));
  EXPECT_THROW(nameOf("5001"), DirectoryError);
}

TEST_F(DatabaseSearches, SeeARollBackOfAnotherProgram) {
  SqliteConnection other(path_);
  other.execute("BEGIN IMMEDIATE");
  other.execute("UPDATE vals SET value = 'nobody' WHERE position = 0");
  EXPECT_EQ(nameOf("5001"), "anna");
  other.execute("ROLLBACK");
  EXPECT_EQ(nameOf("5001"), "anna");
}

}  // namespace
}  // namespace paddock
