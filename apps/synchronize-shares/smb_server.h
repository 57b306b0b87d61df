// The running smbd.
#pragma once

#include <chrono>
#include <string>

namespace paddock::synchronizer {

// Has the running smbd read its configuration again, by means of smbcontrol(1), which is at
// `program`. Empty when it was told so, when no smbd runs, and when there is no such program;
// otherwise what is wrong. A program that takes longer than `patience` is ended.
std::string tellSmbServer(const std::string& program,
                          std::chrono::milliseconds patience = std::chrono::seconds(10));

// The same of ending the connections that clients have with the share, so that they make new ones
// by its new section.
std::string endConnections(const std::string& program, const std::string& share,
                           std::chrono::milliseconds patience = std::chrono::seconds(10));

}  // namespace paddock::synchronizer
