// Standard input and standard error on Windows, through their handles, with no C runtime in
// between: bytes as they come, no text-mode translation.
#include <windows.h>

#include <algorithm>
#include <string>

#include "os/standard_streams.h"

namespace kw {

bool StandardInputIsTerminal() {
  // Only a console has a console mode; the null device and pipes have none.
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

bool ReadStandardInput(size_t limit, std::string* bytes) {
  const HANDLE in = ::GetStdHandle(STD_INPUT_HANDLE);
  if (in == INVALID_HANDLE_VALUE || in == nullptr) return true;  // none at all: nothing in it
  char buffer[4096];
  while (bytes->size() <= limit) {
    const DWORD want = static_cast<DWORD>(std::min(sizeof buffer, limit + 1 - bytes->size()));
    DWORD got = 0;
    if (!::ReadFile(in, buffer, want, &got, nullptr)) {
      // The writer of a pipe that closed its end is the pipe's end of file.
      return ::GetLastError() == ERROR_BROKEN_PIPE;
    }
    if (got == 0) return true;
    bytes->append(buffer, got);
  }
  return true;
}

bool WriteStandardErrorLine(const std::string& bytes) {
  const HANDLE err = ::GetStdHandle(STD_ERROR_HANDLE);
  if (err == INVALID_HANDLE_VALUE || err == nullptr) return false;
  const std::string line = bytes + "\r\n";
  DWORD written = 0;
  return ::WriteFile(err, line.data(), static_cast<DWORD>(line.size()), &written, nullptr) &&
         written == line.size();
}

}  // namespace kw
