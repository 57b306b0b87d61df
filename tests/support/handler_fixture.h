// The sharing module's handler on doubles.
#pragma once

#include <gtest/gtest.h>

#include <future>
#include <mutex>

#include "handler/sharing_request_handler.h"
#include "support/module_fixture.h"

namespace paddock {

class HandlerFixture : public ModuleFixture {
 protected:
  HandlerFixture() {
    SharingRequestHandler::initialize();
    handler.init();
  }

  // A thread that holds a standard mutex must not try it, so another one does.
  static bool lockIsFree() {
    return std::async(std::launch::async,
                      [] {
                        if (!gSettingsDictLock->try_lock()) return false;
                        gSettingsDictLock->unlock();
                        return true;
                      })
        .get();
  }
  static void expectLockFree() { EXPECT_TRUE(lockIsFree()); }

  // The privileges of a path at which nothing is.
  static Dictionary missingPrivs(const std::string& path) {
    return {{"posixErr", "FILE_NOT_FOUND_ERR"}, {"acl", Array{}}, {"path", path}};
  }
  // The quotas of a path where nothing is.
  static Dictionary missingQuotas() { return {{"quotaError", "FILE_NOT_FOUND_ERR"}}; }

  SharingRequestHandler handler;
};

}  // namespace paddock
