// Stands in for copyprivs: touches no object, and writes the status files that the test has put
// beside its executable. NAME.begin is the first one; as long as there is a file NAME.wait it
// continues, until SIGTERM; the last one is NAME.end, or NAME.stopped after SIGTERM. In each of
// them @PID@ and @PATH@ become its process id and the folder. NAME.complaint goes to standard
// error. NAME.arguments gets its argument vector, a line for each.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/installed_root.h"

namespace {

volatile std::sig_atomic_t terminated = 0;

void noteTermination(int /*number*/) { terminated = 1; }

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void replaceAll(std::string& text, std::string_view what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

std::string behind(const std::vector<std::string>& words, std::string_view option) {
  for (std::size_t at = 0; at + 1 < words.size(); ++at) {
    if (words[at] == option) return words[at + 1];
  }
  return {};
}

void publish(const std::string& script, const std::vector<std::string>& words) {
  if (!std::filesystem::exists(script)) return;
  std::string text = readFile(script);
  replaceAll(text, "@PID@", std::to_string(::getpid()));
  replaceAll(text, "@PATH@", behind(words, "-p"));
  const std::string target = behind(words, "-s");
  std::ofstream(target + ".new", std::ios::binary) << text;
  std::filesystem::rename(target + ".new", target);
}

void tellArguments(const std::string& file, const std::vector<std::string>& words) {
  std::ofstream lines(file + ".new");
  for (const std::string& word : words) lines << word << '\n';
  lines.close();
  std::filesystem::rename(file + ".new", file);
}

}  // namespace

int main(int count, char** arguments) {
  std::signal(SIGTERM, noteTermination);
  const std::vector<std::string> words(arguments, arguments + count);
  const std::string own = paddock::runningExecutable();
  tellArguments(own + ".arguments", words);
  std::cerr << readFile(own + ".complaint");
  publish(own + ".begin", words);
  while (std::filesystem::exists(own + ".wait") && terminated == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  publish(own + (terminated != 0 ? ".stopped" : ".end"), words);
  return 0;
}
