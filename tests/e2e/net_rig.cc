#include "e2e/net_rig.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "e2e/harness.h"

namespace kw::e2e {
namespace {

/// A TCP socket bound to 127.0.0.1 (port 0: a free one), or -1.
int Bound(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

int PortOf(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// Whether something listens on the port of 127.0.0.1, as /proc/net/tcp shows (a test
/// connection would make ser2net open its device, which the simulator would count).
bool Listens(int port) {
  char wanted[32];
  std::snprintf(wanted, sizeof wanted, "0100007F:%04X 00000000:0000 0A", port);
  return ReadFile("/proc/net/tcp").find(wanted) != std::string::npos;
}

}  // namespace

int FreePort() {
  const int fd = Bound(0);
  const int port = PortOf(fd);
  close(fd);
  return port;
}

FullListener::FullListener() : listener_(Bound(0)) {
  port_ = PortOf(listener_);
  listen(listener_, 0);
  // Linux keeps one connection more than the backlog waiting; a few more make sure.
  for (int i = 0; i < 3; ++i) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    waiting_.push_back(fd);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

FullListener::~FullListener() {
  for (int fd : waiting_) close(fd);
  close(listener_);
}

Ser2net::Ser2net(const std::string& folder, const std::string& device, bool rfc2217)
    : rfc2217_(rfc2217), port_(FreePort()) {
  if (access("/usr/sbin/ser2net", X_OK) != 0) {
    problem_ = "needs ser2net (scripts/install-deps installs it)";
    return;
  }
  installed_ = true;
  const std::string config = folder + "/ser2net.yaml";
  std::ofstream(config) << "connection: &line\n    accepter: "
                        << (rfc2217 ? "telnet(rfc2217),tcp," : "tcp,") << "127.0.0.1," << port_
                        << "\n    connector: serialdev," << device << ",19200n82,local\n";
  const std::string log = folder + "/ser2net.log";
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // it goes with a test that dies
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(out, 2);
    execl("/usr/sbin/ser2net", "ser2net", "-n", "-d", "-c", config.c_str(),
          static_cast<char*>(nullptr));
    _exit(127);
  }
  // Up to 30 s: a loaded machine can be slow to start it.
  for (int i = 0; i < 3000 && !Listens(port_); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (!Listens(port_)) problem_ = "ser2net did not listen: " + ReadFile(log);
}

Ser2net::~Ser2net() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  int status = 0;
  for (int i = 0; i < 500 && waitpid(pid_, &status, WNOHANG) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (waitpid(pid_, &status, WNOHANG) == 0) kill(pid_, SIGKILL), waitpid(pid_, &status, 0);
}

std::string Ser2net::Entry() const {
  return std::string(rfc2217_ ? "rfc2217" : "tcp") + "://127.0.0.1:" + std::to_string(port_);
}

}  // namespace kw::e2e
