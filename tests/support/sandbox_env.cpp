#include "support/sandbox_env.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace tavik::test {

SandboxEnv::SandboxEnv(sandbox::Options options)
    : sandbox_(std::make_unique<sandbox::Sandbox>(std::move(options))) {
  sandbox_->start();
  transport::trustCaBundle(sandbox_->certPath());
}

std::string SandboxEnv::host() const {
  return "127.0.0.1:" + std::to_string(sandbox_->port());
}

TAVIK SandboxEnv::sdk(bool debug, const std::string& clientId) const {
  return TAVIK::Builder()
      .clientId(clientId)
      .productAdsHost(host())
      .displayAdsHost(host())
      .eventTrackingHost(host())
      .debug(debug)
      .build();
}

Config SandboxEnv::config(bool debug, const std::string& clientId) const {
  return *sdk(debug, clientId).config();
}

sandbox::ScriptedAnswer reply(int status, std::string body, std::string contentType) {
  sandbox::ScriptedAnswer answer;
  answer.status = status;
  answer.body = std::move(body);
  answer.contentType = std::move(contentType);
  return answer;
}

sandbox::ScriptedAnswer redirect(int status, std::string location) {
  sandbox::ScriptedAnswer answer = reply(status);
  answer.headers.emplace_back("Location", std::move(location));
  return answer;
}

sandbox::ScriptedAnswer slow(std::chrono::milliseconds delay, std::string body) {
  sandbox::ScriptedAnswer answer = reply(200, std::move(body));
  answer.delay = delay;
  return answer;
}

sandbox::ScriptedAnswer cutMidAnswer(std::string body) {
  sandbox::ScriptedAnswer answer = reply(200, std::move(body));
  answer.closeMidAnswer = true;
  return answer;
}

int runProgram(const std::vector<std::string>& argv, std::chrono::milliseconds timeout) {
  std::vector<char*> args;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawn(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) return -3;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  int status = 0;
  while (::waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      return -2;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int closedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  const int port = ntohs(address.sin_port);
  ::close(fd);
  return port;
}

const std::string& privateTempDir() {
  static const std::string dir = [] {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/tavik-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary folder from " + pattern);
    }
    static struct Remover {
      std::string path;
      ~Remover() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
      }
    } remover{pattern};
    return pattern + "/";
  }();
  return dir;
}

}  // namespace tavik::test
