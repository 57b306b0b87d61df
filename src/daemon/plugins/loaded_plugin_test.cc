#include "daemon/plugins/loaded_plugin.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>

#include "base/system_call.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr const char* kName = "plugin";

enum Outcome : unsigned { loaded = 0, refused = 1, evilLoaded = 2, failed = 3 };

pid_t inChild(const std::function<void()>& body) {
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    ::_exit(Outcome::failed);
  }
  return child;
}

// A folder of bundles with one plug-in. Loading is tried in a process of its own, because objects
// stay loaded.
class PluginLoading : public ::testing::Test {
 protected:
  PluginLoading() { fs::permissions(folder_.path(), fs::perms(0755)); }

  // A bundle with that plug-in of the tests' under the one name.
  void makeBundle(const std::string& place, const std::string& original) const {
    const std::string contents = folder_.path(place) + "/" + kName + ".bundle/Contents";
    fs::create_directories(contents);
    fs::copy_file(
        std::string(TEST_BUNDLES) + "/" + original + ".bundle/Contents/" + original + ".so",
        contents + "/" + kName + ".so");
  }
  std::string bundle(const std::string& place) const {
    return folder_.path(place) + "/" + kName + ".bundle";
  }
  void giveToNobody(const std::string& path) const {
    for (const std::string& part : {path, path + "/Contents", path + "/Contents/plugin.so"})
      ASSERT_EQ(::chown(part.c_str(), kNobody, kNobody), 0) << part;
  }

  Outcome tryLoading() const {
    const pid_t child = inChild([this] {
      try {
        const LoadedPlugin plugin = loadPlugin(folder_.path("bundles"), kName);
        ::_exit(Outcome::loaded);
      } catch (const std::exception& error) {
        const bool ran = std::strstr(error.what(), "constructor on purpose") != nullptr;
        const bool refused = std::strstr(error.what(), "belongs to user 65534") != nullptr;
        if (!ran && !refused) std::fprintf(stderr, "%s\n", error.what());
        ::_exit(ran ? Outcome::evilLoaded : refused ? Outcome::refused : Outcome::failed);
      }
    });
    int status = 0;
    retryOnInterrupt([&] { return ::waitpid(child, &status, 0); });
    return WIFEXITED(status) ? static_cast<Outcome>(WEXITSTATUS(status)) : Outcome::failed;
  }

  TestFolder folder_;
};

// Puts what `one` and `other` name in one another's place until its end.
class Swapper {
 public:
  Swapper(const std::string& one, const std::string& other)
      : child_(inChild([&] {
          for (;;) ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
        })) {}
  Swapper(const Swapper&) = delete;
  Swapper& operator=(const Swapper&) = delete;
  ~Swapper() {
    ::kill(child_, SIGKILL);
    retryOnInterrupt([this] { return ::waitpid(child_, nullptr, 0); });
  }

 private:
  pid_t child_;
};

TEST_F(PluginLoading, SwappedBundleIsNeverLoaded) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a plug-in away needs root";
  makeBundle("bundles", "test_good");
  makeBundle("evil", "test_throwing_constructor");
  giveToNobody(bundle("evil"));
  ASSERT_EQ(tryLoading(), Outcome::loaded);
  std::array<int, 4> outcomes{};
  const Swapper swapper(bundle("bundles"), bundle("evil"));
  for (int attempt = 0; attempt < 300; ++attempt) ++outcomes.at(tryLoading());
  EXPECT_EQ(outcomes[Outcome::evilLoaded], 0);
  EXPECT_EQ(outcomes[Outcome::failed], 0);
  EXPECT_GT(outcomes[Outcome::loaded], 0) << "neither was in place long enough";
  EXPECT_GT(outcomes[Outcome::refused], 0) << "neither was in place long enough";
  RecordProperty("loaded", outcomes[Outcome::loaded]);
  RecordProperty("refused", outcomes[Outcome::refused]);
}

TEST_F(PluginLoading, FolderAboveThatOthersCanWriteIsRefused) {
  makeBundle("bundles", "test_good");
  for (const std::string& place : {folder_.path("bundles"), folder_.path()}) {
    fs::permissions(place, fs::perms(0777));
    try {
      const LoadedPlugin plugin = loadPlugin(folder_.path("bundles"), kName);
      ADD_FAILURE() << "loaded below " << place;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()), "plug-in plugin refused: others can change " + place +
                                               " (mode 0777): chmod go-w " + place);
    }
    fs::permissions(place, fs::perms(0755));
  }
}

// The linker knows objects by the name that they were opened with.
TEST_F(PluginLoading, EveryPluginIsItsOwnObject) {
  makeBundle("bundles", "test_good");
  makeBundle("others", "test_unreadable_description");
  const pid_t child = inChild([this] {
    const LoadedPlugin good = loadPlugin(folder_.path("bundles"), kName);
    const LoadedPlugin other = loadPlugin(folder_.path("others"), kName);
    const bool differ = good.find("echo") != nullptr && good.find("getState") == nullptr &&
                        other.find("getState") != nullptr && other.find("echo") == nullptr;
    ::_exit(differ ? Outcome::loaded : Outcome::failed);
  });
  int status = 0;
  ASSERT_EQ(retryOnInterrupt([&] { return ::waitpid(child, &status, 0); }), child);
  EXPECT_EQ(status, 0);
}

TEST_F(PluginLoading, ErrorsNameTheFileAndNoDescriptor) {
  makeBundle("bundles", "test_good");
  const std::string object = bundle("bundles") + "/Contents/plugin.so";
  writeWholeFile(object, "no object");
  try {
    const LoadedPlugin plugin = loadPlugin(folder_.path("bundles"), kName);
    FAIL() << "loaded";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), ::testing::StartsWith("plug-in plugin refused: " + object + ": "));
    EXPECT_EQ(std::string(error.what()).find("/proc/"), std::string::npos) << error.what();
  }
}

}  // namespace
}  // namespace paddock
