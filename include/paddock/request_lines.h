// The log lines that requests cause, for who keeps them for the people who asked.
#pragma once

#include <functional>
#include <string>

namespace paddock {

// Takes a line of the request, as it goes to the log but without the request's id behind it. Called
// from any thread, also after the request was answered (a program that it started may end late),
// and from within logMessage, so that it must not log itself.
using RequestLineSink =
    std::function<void(const std::string& request, int priority, const std::string& text)>;

// Besides the log itself. Null: nobody takes them, as at start.
void installRequestLineSink(RequestLineSink sink);

}  // namespace paddock
