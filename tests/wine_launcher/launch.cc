// kw-launch FILE: starts a program with exactly the command line that FILE holds (UTF-16LE, the
// program's own name first), with the standard handles passed on, and gives its exit code.
// Wine rebuilds a command line from the Unix argv and re-quotes it on the way; the end-to-end
// tests go through here to hand the Windows program an exact raw line.
#include <windows.h>

#include <cstdio>
#include <string>

#include "os/raw_command_line.h"

int main() {
  const std::wstring path = kw::TextBehindProgramName(::GetCommandLineW());
  const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
  std::wstring line;
  wchar_t buffer[2048];
  DWORD got = 0;
  while (file != INVALID_HANDLE_VALUE && ::ReadFile(file, buffer, sizeof buffer, &got, nullptr) &&
         got > 0) {
    line.append(buffer, got / sizeof(wchar_t));  // the file's UTF-16LE is wchar_t's own form
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (line.empty() || !::CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &startup, &process)) {
    std::fprintf(stderr, "kw-launch: can't start the line of %ls (%lu)\n", path.c_str(),
                 ::GetLastError());
    return 121;
  }
  ::WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 122;
  ::GetExitCodeProcess(process.hProcess, &code);
  return static_cast<int>(code);
}
