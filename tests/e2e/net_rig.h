#ifndef KW_TESTS_E2E_NET_RIG_H_
#define KW_TESTS_E2E_NET_RIG_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace kw::e2e {

/// A port of 127.0.0.1 that nobody listens on just now.
int FreePort();

/// A listener on 127.0.0.1 whose backlog is full: a connection to it is never answered.
class FullListener {
 public:
  FullListener();
  ~FullListener();
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;
  int port() const { return port_; }

 private:
  int listener_ = -1;
  int port_ = 0;
  std::vector<int> waiting_;  ///< connections that fill the backlog, never accepted
};

/// ser2net (Debian's package) in front of a device, on a free port of 127.0.0.1, raw or in
/// telnet(rfc2217) mode, with the device's own settings 19200 baud and 2 stop bits; stopped when
/// it goes. It opens the device when a client connects and closes it when the client goes.
class Ser2net {
 public:
  Ser2net(const std::string& folder, const std::string& device, bool rfc2217);
  ~Ser2net();
  Ser2net(const Ser2net&) = delete;
  Ser2net& operator=(const Ser2net&) = delete;
  /// Whether ser2net is installed: a test without it is skipped.
  bool installed() const { return installed_; }
  /// Why there is none (not installed, didn't listen), or "".
  const std::string& problem() const { return problem_; }
  /// The [Ports] entry that reaches it.
  std::string Entry() const;

 private:
  bool rfc2217_;
  bool installed_ = false;
  int port_ = 0;
  pid_t pid_ = -1;
  std::string problem_;
};

}  // namespace kw::e2e

#endif  // KW_TESTS_E2E_NET_RIG_H_
