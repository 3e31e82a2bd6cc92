// Platform services on Windows: the raw command line, the executable's folder, files, standard
// output and the application event log, all through the Win32 API in its wide form.
#include <windows.h>

#include <string>
#include <vector>

#include "os/platform.h"
#include "os/raw_command_line.h"

namespace kw {
namespace {

/// The name that our event-log records carry.
constexpr wchar_t kEventSource[] = L"Kestrawind";

/// The attributes that keep a match from counting as a plain file.
constexpr DWORD kNotPlain = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN |
                            FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_DEVICE;

}  // namespace

const wchar_t kPathSeparator[] = L"\\";

std::wstring RawCommandLine() {
  // Windows hands a process one line and leaves the splitting to it; only the program's own
  // name is cut off here, as Windows reads it.
  const wchar_t* line = ::GetCommandLineW();
  return TextBehindProgramName(line ? std::wstring(line) : std::wstring());
}

std::wstring ExecutableFolder() {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD length =
        ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return L".";
    // A full buffer means a cut name (long-path prefixes go past MAX_PATH): try a bigger one.
    if (length < buffer.size()) {
      const std::wstring path(buffer.data(), length);
      const size_t slash = path.find_last_of(L"\\/");
      return slash == std::wstring::npos ? std::wstring(L".") : path.substr(0, slash);
    }
    buffer.resize(buffer.size() * 2);
  }
}

bool PlainFileExists(const std::wstring& path) {
  // A file lookup, as a user's wildcard would do it: the first match that is a plain file counts.
  WIN32_FIND_DATAW found;
  const HANDLE search = ::FindFirstFileW(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  bool plain = false;
  do {
    plain = (found.dwFileAttributes & kNotPlain) == 0 && found.cFileName[0] != L'\0';
  } while (!plain && ::FindNextFileW(search, &found));
  ::FindClose(search);
  return plain;
}

void GuardStandardStreams() {
  // Nothing to do: a closed standard handle stays null here, and no handle that the program
  // opens later takes its place, so the port can never become standard output.
}

bool WriteStandardOutput(const std::string& bytes) {
  // The handle as it is now (a test may have redirected it); no C runtime buffer in between.
  const HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
  if (out == INVALID_HANDLE_VALUE || out == nullptr) return false;
  size_t done = 0;
  while (done < bytes.size()) {
    const DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 20));
    DWORD written = 0;
    if (!::WriteFile(out, bytes.data() + done, chunk, &written, nullptr) || written == 0) {
      return false;
    }
    done += written;
  }
  return true;
}

void WriteEventLog(const std::wstring& text, int event_type, int event_id) {
  WORD type = EVENTLOG_INFORMATION_TYPE;
  if (event_type == 1) type = EVENTLOG_ERROR_TYPE;
  if (event_type == 4) type = EVENTLOG_INFORMATION_TYPE;
  // Registered around each record, as on the other side: nothing stays open for the run. A log
  // that can't be reached loses the record and the run goes on.
  const HANDLE log = ::RegisterEventSourceW(nullptr, kEventSource);
  if (log == nullptr) return;
  const wchar_t* strings[] = {text.c_str()};
  // The ID's message is "%1", so Event Viewer shows the text itself.
  ::ReportEventW(log, type, 0, static_cast<DWORD>(event_id), nullptr, 1, 0, strings, nullptr);
  ::DeregisterEventSource(log);
}

}  // namespace kw
