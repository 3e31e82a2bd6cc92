#include "e2e/harness.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "base/text.h"
#include "os/raw_command_line.h"

namespace kw::e2e {
namespace {

using Clock = std::chrono::steady_clock;

/// Milliseconds until the deadline, never below 0.
int MsLeft(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left < 0 ? 0 : static_cast<int>(left);
}

/// The test's own environment, or none for empty, with the entries of env ("NAME=value") put in
/// or over it.
std::vector<std::string> Environment(const std::vector<std::string>& env, bool empty = false) {
  std::vector<std::string> entries;
  for (char** entry = empty ? nullptr : environ; entry && *entry; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    const bool replaced = std::any_of(env.begin(), env.end(), [&](const std::string& e) {
      return e.compare(0, name.size(), name) == 0;
    });
    if (!replaced) entries.push_back(text);
  }
  entries.insert(entries.end(), env.begin(), env.end());
  return entries;
}

/// Starts path with argv (argv[0] included) in cwd, stdin from /dev/null; stdout and stderr go
/// to the descriptors given, or stay the test's own for -1; with the environment given.
/// Everything the child does between fork and exec is async-signal-safe, so it is prepared here
/// first.
pid_t Spawn(const std::string& path, const std::vector<std::string>& argv, const std::string& cwd,
            int out_fd, int err_fd, const std::vector<std::string>& environment,
            const std::function<void()>& in_child = nullptr) {
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  std::vector<char*> envp;
  for (const std::string& entry : environment) envp.push_back(const_cast<char*>(entry.c_str()));
  envp.push_back(nullptr);
  const int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (null_fd < 0) throw std::runtime_error("can't open /dev/null");
  sigset_t none;
  sigemptyset(&none);
  const pid_t pid = fork();
  if (pid == 0) {
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(null_fd, 0);
    if (out_fd >= 0) dup2(out_fd, 1);
    if (err_fd >= 0) dup2(err_fd, 2);
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(127);
    if (in_child) in_child();
    execve(path.c_str(), args.data(), envp.data());
    _exit(127);
  }
  close(null_fd);
  if (pid < 0) throw std::runtime_error("fork failed");
  return pid;
}

/// An environment variable, or "" when it is not set.
std::string Env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// Writes the text as UTF-16LE, the form that the launcher reads.
void WriteUtf16(const std::string& path, const std::wstring& text) {
  std::string bytes;
  for (wchar_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>((c >> 8) & 0xFF));
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("can't write " + path);
}

/// Reaps the child, waiting at most timeout_ms; the raw wait status, or -1 if it still runs.
int ReapWithin(pid_t pid, int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    int status = 0;
    const pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) return status;
    if (done < 0 && errno != EINTR) return -1;
    if (MsLeft(deadline) == 0) return -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

/// The exit code of a wait status, or minus the signal.
int StatusCode(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return -WTERMSIG(status);
  return -1;
}

}  // namespace

TempFolder::TempFolder() {
  char name[] = "/tmp/kw-e2e-XXXXXX";
  if (!mkdtemp(name)) throw std::runtime_error("mkdtemp failed");
  path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::File(const std::string& name) const { return path_ + "/" + name; }

void TempFolder::CopyKestrawind() const {
  const bool wine = UnderWine();
  std::filesystem::copy_file(wine ? Env("KW_WINE_PROGRAM") : KW_BINARY,
                             File(wine ? "kestrawind.exe" : "kestrawind"),
                             std::filesystem::copy_options::overwrite_existing);
}

bool UnderWine() { return !Env("KW_WINE_PROGRAM").empty() && !Env("KW_WINE_LAUNCHER").empty(); }

std::string ConsoleBytes(const std::string& cp1252) {
  if (UnderWine()) return cp1252;
  std::string utf8;
  for (const wchar_t c : FromLine(cp1252)) {
    const auto code = static_cast<uint32_t>(c);  // all of Windows-1252 lies below U+10000
    if (code < 0x80) {
      utf8.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
      utf8.push_back(static_cast<char>(0xC0 | code >> 6));
      utf8.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
      utf8.push_back(static_cast<char>(0xE0 | code >> 12));
      utf8.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
      utf8.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
  }
  return utf8;
}

std::string PortPathForProgram(const std::string& path) {
  if (!UnderWine()) return path;
  std::string windows = "Z:" + path;
  std::replace(windows.begin(), windows.end(), '/', '\\');
  return windows;
}

void TempFolder::WriteIni(const std::string& bytes) const {
  std::ofstream file(File("kestrawind.ini"), std::ios::binary | std::ios::trunc);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("can't write kestrawind.ini");
}

SimProcess::SimProcess(const std::string& transcript_path, const std::vector<std::string>& args,
                       int ready_timeout_ms)
    : transcript_path_(transcript_path) {
  std::vector<std::string> argv = {KW_SIM_BINARY, "--transcript", transcript_path};
  argv.insert(argv.end(), args.begin(), args.end());
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  pid_ = Spawn(KW_SIM_BINARY, argv, "", pipe_fds[1], -1, Environment({}));
  close(pipe_fds[1]);

  std::string line;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(ready_timeout_ms);
  while (line.find('\n') == std::string::npos) {
    pollfd fd = {pipe_fds[0], POLLIN, 0};
    const int left = MsLeft(deadline);
    if (left == 0 || poll(&fd, 1, left) <= 0) break;
    char buffer[256];
    const ssize_t n = read(pipe_fds[0], buffer, sizeof buffer);
    if (n <= 0) break;
    line.append(buffer, static_cast<size_t>(n));
  }
  close(pipe_fds[0]);
  const std::string kReady = "READY ";
  const size_t end = line.find('\n');
  if (line.compare(0, kReady.size(), kReady) != 0 || end == std::string::npos) {
    kill(pid_, SIGKILL);
    ReapWithin(pid_, 5000);
    throw std::runtime_error("kestrawind-sim gave no READY line, got \"" + line + "\"");
  }
  pty_path_ = line.substr(kReady.size(), end - kReady.size());
}

SimProcess::~SimProcess() {
  if (exit_code_ != -1 || pid_ < 0) return;
  kill(pid_, SIGTERM);
  if (ReapWithin(pid_, 5000) == -1) {
    kill(pid_, SIGKILL);
    ReapWithin(pid_, 5000);
  }
}

int SimProcess::Wait(int timeout_ms) {
  if (exit_code_ != -1) return exit_code_;
  const int status = ReapWithin(pid_, timeout_ms);
  if (status != -1) exit_code_ = StatusCode(status);
  return exit_code_;
}

RunOptions WithEnvironment(std::vector<std::string> entries, bool empty) {
  RunOptions options;
  options.env = std::move(entries);
  options.empty_environment = empty;
  return options;
}

RunResult RunKestrawind(const std::string& folder, const std::vector<std::string>& args,
                        int timeout_s, const RunOptions& options) {
  std::string binary = options.program.empty() ? folder + "/kestrawind" : options.program;
  std::vector<std::string> argv = {binary};
  argv.insert(argv.end(), args.begin(), args.end());
  if (UnderWine()) {
    // The line that the native program rebuilds from its arguments, behind the program's quoted
    // name, goes to the Windows program as it is.
    std::wstring line = L"\"" + FromLocale(PortPathForProgram(folder + "/kestrawind.exe")) + L"\"";
    std::vector<std::wstring> wide;
    for (const std::string& arg : args) wide.push_back(FromLocale(arg));
    if (!wide.empty()) line += L" " + BuildRawCommandLine(wide);
    const std::string line_file = folder + "/launch-line.txt";
    WriteUtf16(line_file, line);
    binary = Env("KW_WINE").empty() ? "/usr/bin/wine" : Env("KW_WINE");
    argv = {binary, Env("KW_WINE_LAUNCHER"), PortPathForProgram(line_file)};
  }
  int out_pipe[2];
  int err_pipe[2];
  if (pipe2(out_pipe, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  if (pipe2(err_pipe, O_CLOEXEC) != 0) {
    close(out_pipe[0]);
    close(out_pipe[1]);
    throw std::runtime_error("pipe2 failed");
  }
  const pid_t pid = Spawn(binary, argv, folder, out_pipe[1], err_pipe[1],
                          Environment(options.env, options.empty_environment), options.in_child);
  close(out_pipe[1]);
  close(err_pipe[1]);
  if (options.started) options.started(pid);

  RunResult result;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout_s);
  bool killed = false;
  pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    const int left = MsLeft(deadline);
    if (left == 0 && !killed) {
      kill(pid, SIGKILL);  // the pipes close with it, and the loop ends
      killed = true;
    }
    const int ready = poll(fds, 2, killed ? 1000 : left);
    if (ready < 0 && errno != EINTR) break;
    if (ready == 0 && killed) break;  // a grandchild holds the pipes: give up on them
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[4096];
      const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        close(fds[i].fd);
        fds[i].fd = -1;
      }
    }
  }
  for (const pollfd& fd : fds) {
    if (fd.fd >= 0) close(fd.fd);
  }
  int status = ReapWithin(pid, killed ? 5000 : std::max(MsLeft(deadline), 1000));
  if (status == -1) {
    kill(pid, SIGKILL);
    status = ReapWithin(pid, 5000);
  }
  result.status = status == -1 ? -1 : StatusCode(status);
  return result;
}

std::string IniForSim(const std::string& protocol, const std::string& pty_path,
                      const std::string& extra_lines, int connection_timeout_s) {
  std::ostringstream ini;
  ini << "[Provider]\r\n"
      << "Protocol=" << protocol << "\r\n"
      << "SmsCenterNumber=" << kSimCentreNumber << "\r\n"
      << "[Modem]\r\n"
      << "Port=1\r\n"
      << "ConnectionTimeout=" << connection_timeout_s << "\r\n"
      << "[Ports]\r\n"
      << "1=" << PortPathForProgram(pty_path) << "\r\n"
      << extra_lines;
  return ini.str();
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

std::string WaitForTranscriptClose(const std::string& path, int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    const std::string transcript = ReadWholeFile(path);
    if (transcript.find(" -- close\n") != std::string::npos || MsLeft(deadline) == 0) {
      return transcript;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

std::string JoinedChunks(const std::string& transcript, char direction) {
  const std::string tag = std::string(1, direction) + " ";
  std::istringstream lines(transcript);
  std::string joined;
  for (std::string line; std::getline(lines, line);) {
    // "<ms> <tag> <text>": the stamp is right-aligned digits
    const size_t stamp_end = line.find_first_not_of(" 0123456789");
    if (stamp_end != std::string::npos && line.compare(stamp_end, tag.size(), tag) == 0) {
      joined += line.substr(stamp_end + tag.size());
    }
  }
  return joined;
}

}  // namespace kw::e2e
