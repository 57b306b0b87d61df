// The replies of the plug-in's operations.
#pragma once

#include <utility>

#include "base/status.h"
#include "base/value.h"
#include "platform/directory.h"

namespace paddock {

// Writes the error to the log.
void logTrouble(const DirectoryError& error);

// "status" of the error (EIO where it has none), "error", the status's text, and "message", why.
// What is a trouble, not an answer, is logged.
Dictionary failureReply(const DirectoryError& error);

// What work() returns with "status" 0, or the reply of the error that it throws.
template <typename Work>
Dictionary replyOf(Work&& work) {
  try {
    Dictionary reply = std::forward<Work>(work)();
    reply.set("status", kSuccess);
    return reply;
  } catch (const DirectoryError& error) {
    return failureReply(error);
  }
}

}  // namespace paddock
