// kw-launch FILE: starts a program with exactly the command line that FILE holds (UTF-16LE, the
// program's own name first), with the standard handles passed on, waits for it and gives its
// exit code. Wine rebuilds a program's command line from the Unix argv and re-quotes it on the
// way; the end-to-end tests go through here to hand the Windows program an exact raw line.
#include <windows.h>

#include <cstdio>
#include <string>

#include "os/raw_command_line.h"

namespace {

/// The file's bytes read as UTF-16LE text; false if it can't be read.
bool ReadLine(const std::wstring& path, std::wstring* line) {
  const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  std::string bytes;
  char buffer[4096];
  DWORD got = 0;
  while (::ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0)
    bytes.append(buffer, got);
  ::CloseHandle(file);
  line->assign(bytes.size() / 2, L'\0');
  for (size_t i = 0; i < line->size(); ++i) {
    (*line)[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                      static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
  }
  return true;
}

}  // namespace

int main() {
  std::wstring line;
  if (!ReadLine(kw::TextBehindProgramName(::GetCommandLineW()), &line) || line.empty()) {
    std::fputs("kw-launch: can't read the command line file\n", stderr);
    return 120;
  }
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!::CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process)) {
    std::fprintf(stderr, "kw-launch: CreateProcessW failed with %lu\n", ::GetLastError());
    return 121;
  }
  ::CloseHandle(process.hThread);
  ::WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 122;
  ::GetExitCodeProcess(process.hProcess, &code);
  ::CloseHandle(process.hProcess);
  return static_cast<int>(code);
}
