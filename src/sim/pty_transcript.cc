#include "sim/pty_transcript.h"

#include <cerrno>
#include <cstdio>

#include "base/error.h"
#include "base/text.h"
#include "link/communication.h"
#include "sim/pty_io.h"

namespace kw::sim {
namespace {

/// Appends one character as UTF-8.
void AppendUtf8(std::string& out, wchar_t wc) {
  const auto c = static_cast<uint32_t>(wc);
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace

void TranscriptFile::Open(const std::string& path) {
  file_.open(path, std::ios::out | std::ios::trunc | std::ios::binary);
  if (!file_) throw Error(ENOENT, kSimSource, FromLocale("can't write the transcript " + path));
}

void TranscriptFile::Write(int64_t now_ms, const std::string& tag, const std::string& text) {
  if (!file_.is_open()) return;
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%6lld ", static_cast<long long>(now_ms));
  file_ << stamp << tag << ' ' << text << '\n' << std::flush;
}

std::string Readable(const std::string& bytes) {
  const std::wstring shown = ShowControlChars(FromLine(bytes));
  std::string out;
  for (wchar_t c : shown) {
    if (c < 0x20 || c == 0x7F) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "<x%02X>", static_cast<unsigned>(c));
      out += hex;
    } else {
      AppendUtf8(out, c);
    }
  }
  return out;
}

}  // namespace kw::sim
