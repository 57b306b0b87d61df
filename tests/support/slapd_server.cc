#include "support/slapd_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "base/file_access.h"
#include "support/run_to_end.h"

namespace paddock {

namespace {

constexpr const char* kSlapd = "/usr/sbin/slapd";

std::string escapedForUri(const std::string& path) {
  std::string text;
  for (const char c : path) text += c == '/' ? std::string("%2F") : std::string(1, c);
  return text;
}

bool connects(const std::string& path) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

constexpr const char* kEntries = R"(dn: dc=example
objectClass: domain
dc: example

dn: ou=people,dc=example
objectClass: organizationalUnit
ou: people

dn: ou=groups,dc=example
objectClass: organizationalUnit
ou: groups

dn: ou=paddock,dc=example
objectClass: organizationalUnit
ou: paddock

dn: cn=service,dc=example
objectClass: organizationalRole
objectClass: simpleSecurityObject
objectClass: extensibleObject
cn: service
employeeType: writer
userPassword: service's
)";

}  // namespace

std::string whyNoSlapd() {
  for (const char* program : {kSlapd, "/usr/bin/ldapadd", "/usr/bin/ldapsearch"})
    if (::access(program, X_OK) != 0) return std::string(program) + " is not installed";
  return {};
}

int freeLoopbackPort() {
  const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("no free port on the loopback");
  return ntohs(address.sin_port);
}

SlapdServer::SlapdServer(SlapdOptions options) : options_(std::move(options)) {
  std::filesystem::create_directory(folder_.path("data"));
  if (options_.tcp) port_ = freeLoopbackPort();
  configure();
  start();
  if (options_.populate) add(kEntries);
}

SlapdServer::~SlapdServer() {
  if (pid_ > 0) kill();
}

void SlapdServer::configure() {
  const std::string schemas = "/etc/ldap/schema/";
  std::string text;
  for (const char* name : {"core", "cosine", "nis", "inetorgperson"})
    text += "include " + schemas + name + ".schema\n";
  if (options_.schema) text += std::string("include \"") + PADDOCK_LDAP_SCHEMA + "\"\n";
  text += "pidfile " + folder_.path("pid") + "\nmodulepath /usr/lib/ldap\nmoduleload back_mdb.so\n";
  if (!options_.certificate.empty())
    text += "TLSCertificateFile " + options_.certificate + "\nTLSCertificateKeyFile " +
            options_.key + "\n";
  text += options_.global;
  text += "\ndatabase mdb\nmaxsize 268435456\ndbnosync\nsuffix \"dc=example\"\nrootdn \"" +
          std::string(kRoot) + "\"\nrootpw \"" + kRootPassword + "\"\ndirectory " +
          folder_.path("data") +
          "\nindex objectClass,uid,cn,uidNumber,gidNumber,memberUid,member,entryUUID eq\n";
  if (options_.schema) text += "index paddockType,paddockMatch eq\n";
  text += options_.database;
  if (refusing_) text += "\naccess to * by * disclose\n";
  text +=
      "\naccess to attrs=userPassword by anonymous auth by * none\n"
      "access to * by set=\"user/employeeType & [writer]\" write by * read\n";
  writeWholeFile(folder_.path("slapd.conf"), text);
}

void SlapdServer::refuseEverybody() {
  stop();
  refusing_ = true;
  configure();
  start();
}

void SlapdServer::start() {
  std::string listeners = ldapiUri();
  if (options_.tcp) listeners += (options_.ldaps ? " ldaps" : " ldap") + tcpUri().substr(4) + "/";
  std::vector<std::string> words{kSlapd,    "-f", folder_.path("slapd.conf"),         "-h",
                                 listeners, "-d", options_.statistics ? "stats" : "0"};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr mode_t kMode = 0600;
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, folder_.path("log").c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, kMode);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  const int error = ::posix_spawn(&pid_, kSlapd, &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("slapd cannot be run");
  waitUntilItListens();
}

void SlapdServer::waitUntilItListens() {
  constexpr int kTries = 3000;
  for (int i = 0; i < kTries; ++i) {
    if (connects(folder_.path("socket"))) return;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  throw std::runtime_error("slapd does not listen; its log: " + readWholeFile(folder_.path("log")));
}

void SlapdServer::stop() {
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

void SlapdServer::kill() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

void SlapdServer::freeze() {
  ::kill(pid_, SIGSTOP);
  // Its threads may still answer until then.
  ::waitpid(pid_, nullptr, WUNTRACED);
}
void SlapdServer::thaw() { ::kill(pid_, SIGCONT); }

std::string SlapdServer::ldapiUri() const {
  return "ldapi://" + escapedForUri(folder_.path("socket"));
}

std::string SlapdServer::tcpUri() const { return "ldap://127.0.0.1:" + std::to_string(port_); }

LdapOptions SlapdServer::nodeOptions(const std::string& name) const {
  const std::string passwordFile = folder_.path("password");
  writeWholeFile(passwordFile, std::string(kServicePassword) + "\n");
  std::filesystem::permissions(
      passwordFile, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  LdapOptions options;
  options.name = name;
  options.uri = ldapiUri();
  options.base = kBase;
  options.recordsBase = kRecords;
  options.bindDn = kService;
  options.passwordFile = passwordFile;
  return options;
}

std::string SlapdServer::run(const std::vector<std::string>& words,
                             const std::string& input) const {
  std::vector<std::string> all{words.front(), "-x",  "-H", ldapiUri(),
                               "-D",          kRoot, "-w", kRootPassword};
  all.insert(all.end(), words.begin() + 1, words.end());
  const EndedProgram ended = runProgram(all, input);
  if (ended.status != 0) throw std::runtime_error(words.front() + ": " + ended.error);
  return ended.output;
}

std::vector<std::string> SlapdServer::linesWith(const std::string& text) const {
  std::istringstream log(readWholeFile(folder_.path("log")));
  std::vector<std::string> lines;
  for (std::string line; std::getline(log, line);)
    if (line.find(text) != std::string::npos) lines.push_back(line);
  return lines;
}

std::vector<std::string> SlapdServer::searches() const {
  constexpr std::string_view kFilter = " filter=";
  std::vector<std::string> filters;
  for (const std::string& line : linesWith(" SRCH base="))
    filters.push_back(line.substr(line.find(kFilter) + kFilter.size()));
  return filters;
}

// Its line that accepts a connection may be written after the reply to the first request; that of
// a request is written before.
int SlapdServer::connections() const {
  std::set<std::string> numbers;
  for (const std::string& line : linesWith(" op=")) {
    const std::size_t number = line.find("conn=");
    if (number != std::string::npos)
      numbers.insert(line.substr(number, line.find(' ', number) - number));
  }
  return static_cast<int>(numbers.size());
}

void SlapdServer::add(const std::string& ldif) { run({"/usr/bin/ldapadd"}, ldif); }
void SlapdServer::modify(const std::string& ldif) { run({"/usr/bin/ldapmodify"}, ldif); }

std::string SlapdServer::search(const std::vector<std::string>& words) const {
  std::vector<std::string> all{"/usr/bin/ldapsearch", "-LLL", "-o", "ldif-wrap=no"};
  all.insert(all.end(), words.begin(), words.end());
  return run(all, "");
}

void SlapdServer::addPerson(const std::string& name, const std::string& password, bool mayWrite) {
  add("dn: uid=" + name + "," + kPeople + "\nobjectClass: inetOrgPerson\nuid: " + name +
      "\ncn: " + name + "\nsn: " + name + "\nuserPassword: " + password + "\n" +
      (mayWrite ? "employeeType: writer\n" : ""));
}

}  // namespace paddock
