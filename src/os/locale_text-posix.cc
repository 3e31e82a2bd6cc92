// The locale's encoding on POSIX: the C library's multibyte conversion under the locale that the
// environment names, except in the C and POSIX locales, which are read as UTF-8.
#include "os/locale_text-posix.h"

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <string>

#include "base/text.h"

namespace kw {
namespace {

/// Whether the current locale is the C or POSIX one: what a program gets with no locale set at
/// all (cron, systemd, env -i). Its character set is plain ASCII, which can't even say "é", and
/// the text that really comes in there (arguments, ini files saved by an editor) is UTF-8, as is
/// what reads the output (a terminal, a journal). So that text is taken as UTF-8.
bool InPlainLocale() {
  const char* name = std::setlocale(LC_CTYPE, nullptr);
  return name != nullptr && (std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0);
}

/// The length of the valid UTF-8 sequence that starts at i, 0 if none does; its code in code.
size_t Utf8Sequence(const std::string& bytes, size_t i, wchar_t& code) {
  const auto at = [&](size_t k) { return static_cast<unsigned char>(bytes[i + k]); };
  const unsigned char lead = at(0);
  size_t length = 0;
  unsigned char low = 0x80;  // the range of the second byte, narrower after some leads
  unsigned char high = 0xBF;
  if (lead < 0x80) {
    code = lead;
    return 1;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // overlong
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // overlong
    if (lead == 0xF4) high = 0x8F;  // beyond U+10FFFF
  } else {
    return 0;
  }
  if (bytes.size() - i < length || at(1) < low || at(1) > high) return 0;
  uint32_t value = lead & (0xFF >> (length + 1));
  for (size_t k = 1; k < length; ++k) {
    if ((at(k) & 0xC0) != 0x80) return 0;
    value = (value << 6) | (at(k) & 0x3F);
  }
  code = static_cast<wchar_t>(value);
  return length;
}

/// Appends the UTF-8 form of one character; "?" for what is no Unicode scalar value.
void AppendUtf8(std::string& out, wchar_t c) {
  const uint32_t v = static_cast<uint32_t>(c);
  if (v < 0x80) {
    out.push_back(static_cast<char>(v));
  } else if (v < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (v >> 6)));
    out.push_back(static_cast<char>(0x80 | (v & 0x3F)));
  } else if (v < 0x10000 && (v < 0xD800 || v > 0xDFFF)) {
    out.push_back(static_cast<char>(0xE0 | (v >> 12)));
    out.push_back(static_cast<char>(0x80 | ((v >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (v & 0x3F)));
  } else if (v >= 0x10000 && v <= 0x10FFFF) {
    out.push_back(static_cast<char>(0xF0 | (v >> 18)));
    out.push_back(static_cast<char>(0x80 | ((v >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((v >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (v & 0x3F)));
  } else {
    out.push_back('?');
  }
}

/// Whether every character is plain ASCII, which reads and writes the same in every locale.
template <typename Text>
bool IsAscii(const Text& text) {
  return std::all_of(text.begin(), text.end(),
                     [](auto c) { return static_cast<uint32_t>(c) < 0x80; });
}

}  // namespace

void LoadUserLocale() {
  // Loading a locale reads its files (an alias table, the encoding's tables): a good share of the
  // time from the start to the first byte on the line, which most runs, all in ASCII, don't need.
  static std::once_flag loaded;
  std::call_once(loaded, [] {
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_TIME, "");
    std::setlocale(LC_MESSAGES, "");
  });
}

std::wstring FromLocale(const std::string& bytes) {
  if (!IsAscii(bytes)) LoadUserLocale();
  std::wstring out;
  out.reserve(bytes.size());
  const bool utf8 = InPlainLocale();
  std::mbstate_t state{};
  size_t i = 0;
  while (i < bytes.size()) {
    wchar_t wc = 0;
    size_t n = 0;
    if (utf8) {
      n = Utf8Sequence(bytes, i, wc);
      if (n == 0) n = static_cast<size_t>(-1);
    } else {
      n = std::mbrtowc(&wc, bytes.data() + i, bytes.size() - i, &state);
    }
    if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
      // Not valid in the locale's encoding: take the byte as Windows-1252,
      // so that a file saved on Windows still reads right.
      out.push_back(LineChar(static_cast<unsigned char>(bytes[i])));
      state = std::mbstate_t{};
      ++i;
    } else {
      out.push_back(wc);  // n == 0 is an embedded NUL, one byte long
      i += n == 0 ? 1 : n;
    }
  }
  return out;
}

std::string ToLocale(const std::wstring& text) {
  if (!IsAscii(text)) LoadUserLocale();
  std::string out;
  out.reserve(text.size());
  if (InPlainLocale()) {
    for (wchar_t c : text) AppendUtf8(out, c);
    return out;
  }
  std::mbstate_t state{};
  char buf[16];
  for (wchar_t c : text) {
    size_t n = std::wcrtomb(buf, c, &state);
    if (n == static_cast<size_t>(-1)) {
      out.push_back('?');
      state = std::mbstate_t{};
    } else {
      out.append(buf, n);
    }
  }
  return out;
}

}  // namespace kw
