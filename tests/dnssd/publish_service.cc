// Publishes services by commands on standard input, a line each, and prints to standard output what
// delegates and the log receive.
//
//     publish_service FIRST-PAUSE LONGEST-PAUSE       in milliseconds
//
//     create ID PORT TYPE [NAME [DOMAIN]]    fields are separated by tabs
//     txt ID TEXT...                         the strings of the TXT record, in hexadecimal digits
//     publish ID
//     stop ID
//     destroy ID
//     end                                    the services as a whole
//
// Each is answered with "done MICROSECONDS", the time that the call took.

#include <chrono>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/dnssd/linux_net_services.h"
#include "platform/logger.h"

namespace paddock {
namespace {

using Fields = std::vector<std::string>;

// One line at a time, of any thread.
void say(const std::string& line) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  std::cout << line << std::endl;
}

class SayingLogger final : public Logger {
 public:
  void log(int priority, std::string_view text) override {
    say("log " + std::to_string(priority) + " " + std::string(text));
  }
};

class SayingDelegate final : public NetServiceDelegate {
 public:
  explicit SayingDelegate(std::string id) : id_(std::move(id)) {}
  void netServiceWillPublish(NetService&) override { say("willPublish " + id_); }
  void netServiceDidNotPublish(NetService&, const Dictionary& errors) override {
    const std::string* text = errors.string("error");
    say("didNotPublish " + id_ + " " + (text != nullptr ? *text : "without a text"));
  }
  void netServiceDidStop(NetService&) override { say("didStop " + id_); }

 private:
  const std::string id_;
};

struct Published {
  std::unique_ptr<SayingDelegate> delegate;
  std::shared_ptr<NetService> service;
};

Fields fieldsOf(const std::string& line) {
  Fields fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, '\t');) fields.push_back(field);
  return fields;
}

std::string bytesOf(const std::string& digits) {
  std::string bytes;
  for (std::size_t at = 0; at + 1 < digits.size(); at += 2)
    bytes.push_back(static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16)));
  return bytes;
}

Data txtOf(const Fields& fields) {
  Data data;
  for (std::size_t at = 2; at < fields.size(); ++at) {
    const std::string bytes = bytesOf(fields[at]);
    data.bytes.push_back(static_cast<std::uint8_t>(bytes.size()));
    data.bytes.insert(data.bytes.end(), bytes.begin(), bytes.end());
  }
  return data;
}

class Session {
 public:
  explicit Session(const AvahiNetServicesOptions& options) { services_.emplace(options); }

  void perform(const Fields& fields) {
    const std::string& command = fields.at(0);
    if (command == "end") return services_.reset();
    const std::string& id = fields.at(1);
    if (command == "create") return create(id, fields);
    Published& published = published_.at(id);
    if (command == "txt" && !published.service->setTxtRecordData(txtOf(fields))) say("no TXT");
    if (command == "publish") published.service->publish();
    if (command == "stop") published.service->stop();
    if (command == "destroy") published_.erase(id);
  }

 private:
  void create(const std::string& id, const Fields& fields) {
    const auto field = [&fields](std::size_t at) {
      return at < fields.size() ? fields[at] : std::string();
    };
    const auto port = static_cast<std::uint16_t>(std::stoi(fields.at(2)));
    auto delegate = std::make_unique<SayingDelegate>(id);
    auto service = services_->createService(field(5), field(3), field(4), port);
    service->setDelegate(delegate.get());
    published_.insert_or_assign(id, Published{std::move(delegate), std::move(service)});
  }

  std::optional<AvahiNetServices> services_;
  std::map<std::string, Published> published_;
};

void serve(const AvahiNetServicesOptions& options) {
  Session session(options);
  for (std::string line; std::getline(std::cin, line);) {
    const auto start = std::chrono::steady_clock::now();
    session.perform(fieldsOf(line));
    const std::chrono::duration<double, std::micro> taken =
        std::chrono::steady_clock::now() - start;
    say("done " + std::to_string(static_cast<long>(taken.count())));
  }
}

}  // namespace
}  // namespace paddock

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  paddock::SayingLogger logger;
  paddock::serve({&logger, std::chrono::milliseconds(std::stoi(argv[1])),
                  std::chrono::milliseconds(std::stoi(argv[2]))});
  return 0;
}
