// Profile files on Windows: opened by their wide paths, so that a folder named in any script
// works, and 8-bit text read as UTF-8 where it is valid UTF-8 (Notepad's default), else as ANSI.
#include <windows.h>

#include <algorithm>
#include <climits>

#include "base/text.h"
#include "os/profile_file.h"

namespace kw {
namespace {

/// Closes a file handle when it goes.
class HandleCloser {
 public:
  explicit HandleCloser(HANDLE handle) : handle_(handle) {}
  ~HandleCloser() { ::CloseHandle(handle_); }
  HandleCloser(const HandleCloser&) = delete;
  HandleCloser& operator=(const HandleCloser&) = delete;

 private:
  HANDLE handle_;
};

/// The number of bytes from body on, as the conversion calls take it; -1 when too many.
int CountFrom(const std::string& bytes, size_t body) {
  const size_t count = bytes.size() > body ? bytes.size() - body : 0;
  return count < INT_MAX ? static_cast<int>(count) : -1;
}

}  // namespace

bool ReadWholeFile(const std::wstring& path, std::string& bytes, FileProblem& problem) {
  bytes.clear();
  const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    problem = FileProblemOf(static_cast<int>(::GetLastError()));
    return false;
  }
  const HandleCloser closer(file);
  LARGE_INTEGER size;
  DWORD chunk = ::GetFileSizeEx(file, &size) && size.QuadPart < (1 << 30)
                    ? static_cast<DWORD>(size.QuadPart) + 1
                    : 1 << 16;
  for (;;) {
    const size_t have = bytes.size();
    bytes.resize(have + chunk);
    DWORD got = 0;
    const bool read = ::ReadFile(file, &bytes[have], chunk, &got, nullptr);
    bytes.resize(have + got);
    if (!read) {
      problem = FileProblemOf(static_cast<int>(::GetLastError()));
      bytes.clear();
      return false;
    }
    if (got == 0) return true;
    chunk = 1 << 16;
  }
}

bool WriteWholeFile(const std::wstring& path, const std::string& bytes) {
  const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  const HandleCloser closer(file);
  for (size_t done = 0; done < bytes.size();) {
    const DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 20));
    DWORD written = 0;
    if (!::WriteFile(file, bytes.data() + done, chunk, &written, nullptr) || written == 0) {
      return false;
    }
    done += written;
  }
  return true;
}

bool ReadsAsUtf8(const std::string& bytes, size_t body) {
  const int count = CountFrom(bytes, body);
  if (count <= 0) return count == 0;
  return ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data() + body, count, nullptr,
                               0) > 0;
}

std::wstring DecodeProfileText(const std::string& bytes, bool utf8) {
  const int count = CountFrom(bytes, 0);
  if (!utf8 || count <= 0) return FromLocale(bytes);
  std::wstring text(static_cast<size_t>(count), L'\0');  // never more units than bytes
  text.resize(
      static_cast<size_t>(::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), count, &text[0], count)));
  return text;
}

std::string EncodeProfileText(const std::wstring& text, bool utf8) {
  const int count = static_cast<int>(std::min<size_t>(text.size(), INT_MAX / 3));
  if (!utf8 || count == 0) return ToLocale(text);
  std::string bytes(static_cast<size_t>(count) * 3, '\0');  // at most three bytes a unit
  bytes.resize(static_cast<size_t>(::WideCharToMultiByte(CP_UTF8, 0, text.data(), count, &bytes[0],
                                                         count * 3, nullptr, nullptr)));
  return bytes;
}

}  // namespace kw
