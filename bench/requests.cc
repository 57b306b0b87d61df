// Sends requests over one connection that stays open, and says how long each took.
//
//   bench_requests [--bodies] SOCKET <REQUESTS
//
// A line of REQUESTS is PLUGIN/OPERATION, a blank and the body; one of standard output is the HTTP
// status, the nanoseconds from the start of the request to the end of its reply, and the reply's
// length or, with --bodies, the reply itself. Exit status 1 when the daemon does not answer.
#include <curl/curl.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};

struct Answer {
  long status = 0;
  std::chrono::nanoseconds time{};
};

std::size_t appendTo(const char* data, std::size_t one, std::size_t count, void* text) {
  static_cast<std::string*>(text)->append(data, one * count);
  return one * count;
}

class Connection {
 public:
  explicit Connection(const char* socket) : handle_(curl_easy_init()) {
    if (!handle_) throw std::runtime_error("libcurl gives no handle");
    set(CURLOPT_UNIX_SOCKET_PATH, socket);
    set(CURLOPT_WRITEFUNCTION, &appendTo);
    set(CURLOPT_WRITEDATA, &reply_);
    set(CURLOPT_BUFFERSIZE, 512L << 10);
    set(CURLOPT_NOSIGNAL, 1L);
  }

  Answer post(const std::string& operation, const std::string& body) {
    set(CURLOPT_URL, ("http://paddock/v1/" + operation).c_str());
    set(CURLOPT_POSTFIELDS, body.c_str());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    reply_.clear();
    const auto began = Clock::now();
    const CURLcode code = curl_easy_perform(handle_.get());
    const auto time = Clock::now() - began;
    if (code != CURLE_OK) throw std::runtime_error(operation + ": " + curl_easy_strerror(code));
    Answer answer{0, time};
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
  }

  const std::string& reply() const { return reply_; }

 private:
  template <typename Value>
  void set(CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(handle_.get(), option, value);
    if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
  }

  std::unique_ptr<CURL, CurlDeleter> handle_;
  std::string reply_;
};

std::string_view withoutLineEnd(const std::string& text) {
  return std::string_view(text).substr(0, text.find_last_not_of('\n') + 1);
}

void answerAll(const char* socket, bool bodies) {
  Connection connection(socket);
  for (std::string line; std::getline(std::cin, line);) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos) throw std::runtime_error("a request without a body: " + line);
    const Answer answer = connection.post(line.substr(0, blank), line.substr(blank + 1));
    std::cout << answer.status << ' ' << answer.time.count() << ' ';
    if (bodies) {
      std::cout << withoutLineEnd(connection.reply()) << '\n';
    } else {
      std::cout << connection.reply().size() << '\n';
    }
    std::cout.flush();
  }
}

}  // namespace

int main(int count, char** arguments) {
  const bool bodies = count == 3 && std::string_view(arguments[1]) == "--bodies";
  if (count != 2 && !bodies) {
    std::cerr << "usage: bench_requests [--bodies] SOCKET <REQUESTS\n";
    return 2;
  }
  try {
    answerAll(arguments[count - 1], bodies);
  } catch (const std::exception& error) {
    std::cerr << "bench_requests: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
