#include "e2e/harness.h"

#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "base/text.h"
#include "os/raw_command_line.h"

namespace kw::e2e {
namespace {

constexpr int kRunning = -1000;

/// An environment variable, or "".
std::string Env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// Polls the condition every 10 ms for up to ms; whether it came true.
bool WaitUntil(const std::function<bool()>& done, int ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

/// Waits up to ms for the child: its exit code, minus its signal, or kRunning.
int Reap(pid_t pid, int ms) {
  int status = 0;
  if (!WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, ms)) return kRunning;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Ends a helper process of the test: SIGTERM, and SIGKILL if that takes over 5 s.
void Stop(pid_t pid) {
  if (pid <= 0) return;
  kill(pid, SIGTERM);
  if (Reap(pid, 5000) == kRunning) kill(pid, SIGKILL), Reap(pid, 5000);
}

/// Starts argv in dir with stdin from /dev/null, stdout and stderr to out and err (kept if -1).
pid_t Spawn(const std::vector<std::string>& argv, const RunOptions& options, const std::string& dir,
            int out, int err) {
  std::vector<std::string> entries(options.env);  // over the test's environment
  for (char** entry = environ; *entry; ++entry) entries.insert(entries.begin(), *entry);
  std::map<std::string, std::string> vars;
  for (const std::string& entry : entries) vars[entry.substr(0, entry.find('='))] = entry;
  std::vector<char*> args, env;  // made before the fork: the child may only call safe functions
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  for (const auto& var : vars) env.push_back(const_cast<char*>(var.second.c_str()));
  args.push_back(nullptr);
  env.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);  // a group of its own, which a time-out kills whole
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
    if (out >= 0) dup2(out, 1);
    if (err >= 0) dup2(err, 2);
    if (!dir.empty() && chdir(dir.c_str()) != 0) _exit(127);
    if (options.in_child) options.in_child();
    // It dies with the test, also when a time-out kills that from outside; set behind in_child,
    // whose change of user would clear it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    execve(args[0], args.data(), env.data());
    _exit(127);
  }
  if (pid < 0) throw std::runtime_error("fork failed");
  return pid;
}

/// A datagram socket, bound to /dev/log or connected to it; -1 when that fails.
int DevLogSocket(bool bind_it, int flags = 0) {
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  const socklen_t size = sizeof address;
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | flags, 0);
  if ((bind_it ? bind(fd, name, size) : connect(fd, name, size)) != 0) close(fd), fd = -1;
  return fd;
}

/// Whether a logger takes datagrams on /dev/log.
bool LoggerListens() { return close(DevLogSocket(false)) == 0; }

/// A TCP socket of 127.0.0.1 (port 0: a free one), bound, or connected without waiting; and its
/// port.
std::pair<int, int> Loopback(int port, bool connect_it, int flags = 0) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  sockaddr_in address{AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  auto* name = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (connect_it) return {connect(fd, name, size), fd};
  bind(fd, name, size);
  getsockname(fd, name, &size);
  return {fd, ntohs(address.sin_port)};
}

}  // namespace

Rig::Rig(const std::vector<std::string>& sim_args, const std::string& name) {
  char root[] = "/tmp/kw-e2e-XXXXXX";
  if (!mkdtemp(root)) throw std::runtime_error("mkdtemp failed");
  root_ = dir_ = root;
  if (!name.empty()) std::filesystem::create_directory(dir_ += "/" + name);
  for (std::filesystem::path program : {KW_BINARY, KW_SEND_BINARY}) {
    // The Windows kestrawind-send is built beside the Windows kestrawind.
    const std::filesystem::path exe = program.filename() += ".exe";
    if (UnderWine()) program = std::filesystem::path(Env("KW_WINE_PROGRAM")).replace_filename(exe);
    std::filesystem::copy_file(program, File(program.filename().string()));
  }
  if (sim_args.empty()) return;
  std::vector<std::string> argv = {KW_SIM_BINARY, "--transcript", File("transcript.txt")};
  argv.insert(argv.end(), sim_args.begin(), sim_args.end());
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  sim_ = Spawn(argv, {}, "", ready[1], -1);
  close(ready[1]);
  std::string line;  // "READY <pty>\n"; the simulator ends by itself if it can't serve
  for (char c = 0; c != '\n' && read(ready[0], &c, 1) == 1;) line += c;
  close(ready[0]);
  if (line.rfind("READY ", 0) != 0) throw std::runtime_error("no READY from the sim: " + line);
  pty_ = line.substr(6, line.size() - 7);
  WriteIni(PortIni("TAP", ProgramPath(pty_)));
}

Rig::~Rig() {
  Stop(sim_);
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

void Rig::WriteIni(const std::string& bytes) const {
  std::ofstream(File("kestrawind.ini"), std::ios::binary) << bytes;
}

RunResult Rig::Run(const std::vector<std::string>& args, const RunOptions& options) const {
  static std::atomic<int> runs{0};
  const std::string base = File("run" + std::to_string(++runs));
  const std::string& name = options.program;
  std::vector<std::string> argv = {name[0] == '/' ? name : File(name)};
  argv.insert(argv.end(), args.begin(), args.end());
  if (UnderWine() && name[0] != '/') {
    // Wine would re-quote a Unix argv: the launcher hands the program this raw line instead.
    std::vector<std::wstring> wide;
    for (const std::string& arg : args) wide.push_back(FromLocale(arg));
    std::wstring line = L"\"" + FromLocale(ProgramPath(File(name + ".exe"))) + L"\"";
    if (!wide.empty()) line += L" " + BuildRawCommandLine(wide);
    std::string utf16;
    for (wchar_t c : line) utf16 += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
    std::ofstream(base + ".line", std::ios::binary) << utf16;
    argv = {Env("KW_WINE").empty() ? "/usr/bin/wine" : Env("KW_WINE"), Env("KW_WINE_LAUNCHER"),
            ProgramPath(base + ".line")};
  }
  const int out = open((base + ".out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  const int err = open((base + ".err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = Spawn(argv, options, dir_, options.out >= 0 ? options.out : out, err);
  for (int fd : {out, err}) close(fd);
  if (options.started) options.started(pid);
  int status = Reap(pid, 60000);
  if (status == kRunning) kill(-pid, SIGKILL), status = Reap(pid, 5000);
  return {ReadFile(base + ".out"), ReadFile(base + ".err"), status, MsSince(start), pid};
}

std::string Rig::Transcript(const std::string& text, int count) const {
  std::string transcript;
  WaitUntil([&] { return Count(transcript = ReadFile(File("transcript.txt")), text) >= count; },
            10000);
  return transcript;
}

std::string PortIni(const std::string& protocol, const std::string& entry,
                    const std::string& provider) {
  return "[Provider]\r\nProtocol=" + protocol + "\r\nSmsCenterNumber=" + kCentre + "\r\n" +
         provider + "[Modem]\r\nPort=1\r\nConnectionTimeout=20\r\n[Ports]\r\n1=" + entry + "\r\n";
}

std::string Sent(const std::string& transcript) {
  std::istringstream lines(transcript);
  std::string sent;
  for (std::string line; std::getline(lines, line);) {
    const size_t tag = line.find_first_not_of(" 0123456789");  // behind the stamp in ms
    if (line.compare(tag, 2, "> ") == 0) sent += line.substr(tag + 2);
  }
  // The first wait for the TAP prompt ends at the next whole second, which may come before the
  // prompt does: then the program probes again, as it should. One probe stands for them all.
  return std::regex_replace(sent, std::regex("(<CR>)+<ESC>"), "<CR><ESC>");
}

std::string ProgramPath(std::string path) {
  if (!UnderWine()) return path;
  for (char& c : path) c = c == '/' ? '\\' : c;
  return "Z:" + path;
}

bool UnderWine() { return !Env("KW_WINE_PROGRAM").empty() && !Env("KW_WINE_LAUNCHER").empty(); }

std::string ReadFile(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

int Count(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

void AsNobody() {
  if (getuid() != 0) return;
  if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(126);
}

std::string SuccessLine(const std::string& text, const std::string& recipient) {
  return "Successfully sent message <" + text + "> to recipient <" + recipient + ">\r\n";
}

long long MsSince(std::chrono::steady_clock::time_point then) {
  const auto took = std::chrono::steady_clock::now() - then;
  return std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
}

SystemLog::SystemLog(Kind kind) {
  // Test processes take turns, so each finds /dev/log as the one before it left it.
  lock_ = open("/tmp/kestrawind-system-log.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (geteuid() != 0 || (kind == kRsyslog && access("/usr/sbin/rsyslogd", X_OK) != 0)) {
    problem_ = "needs root and rsyslog to start a logger on /dev/log";
  } else if (!WaitUntil([this] { return flock(lock_, LOCK_EX | LOCK_NB) == 0; }, 60000)) {
    problem_ = "another test process kept the system logger for a minute";
  } else if (LoggerListens()) {
    problem_ = "a logger that isn't ours listens on /dev/log";
  }
  if (!problem_.empty()) return;
  unlink("/dev/log");  // the socket of a logger that was killed
  if (kind == kStuck) {
    stuck_ = DevLogSocket(true);
    const int filler = DevLogSocket(false, SOCK_NONBLOCK);
    while (send(filler, "x", 1, 0) == 1) continue;
    close(filler);
    if (stuck_ < 0 || filler < 0) problem_ = "can't make a socket on /dev/log";
    return;
  }
  char name[] = "/tmp/kw-syslog-XXXXXX";
  dir_ = mkdtemp(name) ? name : throw std::runtime_error("mkdtemp failed");
  const std::string conf = dir_ + "/rsyslog.conf";
  std::ofstream(conf) << "module(load=\"imuxsock\" SysSock.Use=\"on\")\n"
                      << "template(name=\"t\" type=\"string\" string=\"%syslogseverity-text% "
                      << "%syslogtag%%msg%\\n\")\n*.* action(type=\"omfile\" file=\"" << dir_
                      << "/log\" template=\"t\")\n";
  pid_ = Spawn({"/usr/sbin/rsyslogd", "-n", "-f", conf, "-i", dir_ + "/pid"}, {}, "", -1, -1);
  if (!WaitUntil(LoggerListens, 5000)) problem_ = "rsyslogd did not open /dev/log";
}

SystemLog::~SystemLog() {
  Stop(pid_);
  if (!dir_.empty()) std::filesystem::remove_all(dir_);
  if (stuck_ >= 0) close(stuck_), unlink("/dev/log");
  close(lock_);  // the next test process's turn
}

std::string SystemLog::WaitFor(const std::string& text) const {
  std::string log;
  if (!WaitUntil([&] { return Count(log = ReadFile(dir_ + "/log"), text) > 0; }, 5000)) return "";
  const size_t at = log.find(text), begin = log.rfind('\n', at) + 1;  // npos + 1 is 0
  return log.substr(begin, log.find('\n', at) - begin);
}

int FreePort() {
  const auto [fd, port] = Loopback(0, false);
  close(fd);
  return port;
}

FullListener::FullListener() {
  const auto [listener, bound] = Loopback(0, false);
  fds = {listener};
  port = bound;
  listen(listener, 0);
  // Linux keeps one connection more than the backlog waiting; a few more make sure.
  for (int i = 0; i < 3; ++i) fds.push_back(Loopback(port, true, SOCK_NONBLOCK).second);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

FullListener::~FullListener() { std::for_each(fds.begin(), fds.end(), close); }

Ser2net::Ser2net(const Rig& rig, bool rfc2217) {
  const int port = FreePort();
  entry = (rfc2217 ? "rfc2217://127.0.0.1:" : "tcp://127.0.0.1:") + std::to_string(port);
  const std::string config = rig.File("ser2net.yaml");
  std::ofstream(config) << "connection: &line\n    accepter: "
                        << (rfc2217 ? "telnet(rfc2217),tcp," : "tcp,") << "127.0.0.1," << port
                        << "\n    connector: serialdev," << rig.pty() << ",19200n82,local\n";
  const int log = open(rig.File("ser2net.log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  pid = Spawn({"/usr/sbin/ser2net", "-n", "-d", "-c", config}, {}, "", log, log);
  close(log);
  // Its listening socket in /proc/net/tcp, for up to 30 s as a loaded machine can be slow to
  // start it (a test connection would make ser2net open its device, which the simulator would
  // count).
  char wanted[32];
  std::snprintf(wanted, sizeof wanted, "0100007F:%04X 00000000:0000 0A", port);
  if (!WaitUntil([&wanted] { return Count(ReadFile("/proc/net/tcp"), wanted) > 0; }, 30000)) {
    Stop(pid);
    throw std::runtime_error("ser2net did not listen: " + ReadFile(rig.File("ser2net.log")));
  }
}

Ser2net::~Ser2net() { Stop(pid); }

}  // namespace kw::e2e
