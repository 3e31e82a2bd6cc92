#include "os/profile.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <vector>

#include "base/text.h"

namespace kw {
namespace {

constexpr size_t kNone = static_cast<size_t>(-1);
constexpr size_t kMaxValue = 253;  // the longest value a read hands back, in characters
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

/// One line of the file: where its bytes lie and what it holds.
struct Line {
  enum Kind { kOther, kHeader, kKey };
  size_t begin = 0;  // first byte of the line's text
  size_t end = 0;    // first byte of its line end (the file's end when it has none)
  size_t next = 0;   // first byte after its line end
  Kind kind = kOther;
  std::wstring name;   // section name of a header, key name of a key line; trimmed
  std::wstring value;  // what follows the first "=" of a key line, as it stands
};

/// Where a key sits: line indexes of the section header, of the key, and of the line after
/// which a new key goes (the section's last key line, or its header when it has none).
struct Spot {
  size_t header = kNone;
  size_t key = kNone;
  size_t last = kNone;
};

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

std::wstring Trim(const std::wstring& text) {
  size_t b = 0;
  size_t e = text.size();
  while (b < e && IsBlank(text[b])) ++b;
  while (e > b && IsBlank(text[e - 1])) --e;
  return text.substr(b, e - b);
}

wchar_t AsciiLower(wchar_t c) { return c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c; }

bool SameName(const std::wstring& a, const std::wstring& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(),
                    [](wchar_t x, wchar_t y) { return AsciiLower(x) == AsciiLower(y); });
}

/// The file's bytes; none when it is missing or can't be read (a folder, say).
std::string ReadBytes(const std::wstring& path) {
  std::ifstream in(ToLocale(path), std::ios::binary);
  std::ostringstream bytes;
  // Streaming the buffer rather than iterating it: a read error (a folder) then only sets a flag
  // instead of throwing out of the stream buffer.
  if (in) bytes << in.rdbuf();
  return bytes.str();
}

/// Sorts one line's text (NUL already cut off) into header, key line or other.
void Classify(const std::wstring& text, Line& line) {
  const std::wstring trimmed = Trim(text);
  if (!trimmed.empty() && trimmed[0] == L'[') {
    // A "[" line without "]" is neither a header nor a key line.
    const size_t close = trimmed.rfind(L']');
    if (close != std::wstring::npos) {
      line.kind = Line::kHeader;
      line.name = Trim(trimmed.substr(1, close - 1));
    }
    return;
  }
  const size_t eq = text.find(L'=');
  if (eq == std::wstring::npos) return;
  line.kind = Line::kKey;
  line.name = Trim(text.substr(0, eq));
  line.value = text.substr(eq + 1);
}

/// The text of a line of an 8-bit file: decoded in the locale's encoding.
std::wstring Decode(const std::string& bytes) { return FromLocale(bytes); }
/// The text of a line of a UTF-16 file: already characters.
std::wstring Decode(const std::wstring& text) { return text; }
/// A line's new text in the file's own form.
std::string Encode(const std::wstring& text, const std::string&) { return ToLocale(text); }
std::wstring Encode(const std::wstring& text, const std::wstring&) { return text; }

/// Splits the file's text (bytes, or the characters of a UTF-16 file) into lines at CR LF, LF or
/// a lone CR, from body on (past a byte-order mark).
template <typename Text>
std::vector<Line> Parse(const Text& text, size_t body) {
  using Char = typename Text::value_type;
  static const Char kLineEnds[] = {'\r', '\n', 0};
  std::vector<Line> lines;
  size_t pos = body;
  while (pos < text.size()) {
    Line line;
    line.begin = pos;
    line.end = std::min(text.find_first_of(kLineEnds, pos), text.size());
    line.next = line.end;
    if (line.next < text.size() && text[line.next++] == '\r' && line.next < text.size() &&
        text[line.next] == '\n') {
      ++line.next;
    }
    const size_t text_end = std::min(text.find(Char(0), pos), line.end);  // a NUL ends the line
    Classify(Decode(text.substr(pos, text_end - pos)), line);
    lines.push_back(std::move(line));
    pos = lines.back().next;
  }
  return lines;
}

/// Finds the first section of the name and, in it, the first key of the name.
Spot Find(const std::vector<Line>& lines, const std::wstring& section, const std::wstring& key) {
  Spot spot;
  for (size_t i = 0; i < lines.size(); ++i) {
    const Line& line = lines[i];
    if (line.kind == Line::kHeader) {
      if (spot.header != kNone) break;  // the section ends at the next header
      if (SameName(line.name, section)) spot.header = spot.last = i;
    } else if (line.kind == Line::kKey && spot.header != kNone) {
      spot.last = i;
      if (spot.key == kNone && SameName(line.name, key)) spot.key = i;
    }
  }
  return spot;
}

/// The value as handed back: trimmed, one pair of matching outer quotes removed, cut.
std::wstring Clean(const std::wstring& raw) {
  std::wstring value = Trim(raw);
  if (value.size() >= 2 && (value[0] == L'"' || value[0] == L'\'') && value.back() == value[0]) {
    value = value.substr(1, value.size() - 2);
  }
  return value.substr(0, kMaxValue);
}

/// A profile file as read: its bytes, or for a file saved as UTF-16 (what Windows calls
/// "Unicode", with a byte-order mark), its characters.
struct FileText {
  enum Encoding { k8Bit, kUtf16Le, kUtf16Be };
  Encoding encoding = k8Bit;
  std::string bytes;  ///< the whole file, for an 8-bit one
  std::wstring wide;  ///< the characters behind the mark, for a UTF-16 one
};

/// The UTF-16 code unit at byte i.
unsigned Unit(const std::string& bytes, size_t i, bool big_endian) {
  const unsigned first = static_cast<unsigned char>(bytes[i]);
  const unsigned second = static_cast<unsigned char>(bytes[i + 1]);
  return big_endian ? first << 8 | second : second << 8 | first;
}

/// Reads the file and tells its encoding by its byte-order mark.
FileText Load(const std::wstring& path) {
  FileText file;
  file.bytes = ReadBytes(path);
  const bool le = file.bytes.compare(0, 2, "\xFF\xFE") == 0;
  const bool be = file.bytes.compare(0, 2, "\xFE\xFF") == 0;
  if (!le && !be) return file;
  file.encoding = le ? FileText::kUtf16Le : FileText::kUtf16Be;
  // Where a wide character holds any character, pairs of surrogates become one character; where
  // wide text is UTF-16 itself (Windows), they stay two units. A lone one stays as it is, so that
  // writing the file back gives the same units. An odd last byte is no character and is dropped.
  constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;
  for (size_t i = 2; i + 1 < file.bytes.size(); i += 2) {
    const unsigned unit = Unit(file.bytes, i, be);
    if (!kWideIsUtf16 && unit >= 0xD800 && unit <= 0xDBFF && i + 3 < file.bytes.size()) {
      const unsigned low = Unit(file.bytes, i + 2, be);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        file.wide.push_back(
            static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
        i += 2;
        continue;
      }
    }
    file.wide.push_back(static_cast<wchar_t>(unit));
  }
  file.bytes.clear();
  return file;
}

/// Writes the file back in the encoding it was read in. Reports nothing.
void Store(const std::wstring& path, const FileText& file) {
  std::string bytes = file.bytes;
  if (file.encoding != FileText::k8Bit) {
    const bool be = file.encoding == FileText::kUtf16Be;
    const auto put = [&](unsigned unit) {
      const char high = static_cast<char>(unit >> 8);
      const char low = static_cast<char>(unit & 0xFF);
      bytes += be ? std::string{high, low} : std::string{low, high};
    };
    put(0xFEFF);
    for (const wchar_t c : file.wide) {
      const unsigned code = static_cast<unsigned>(c);
      if (code > 0xFFFF && code <= 0x10FFFF) {
        put(0xD800 + ((code - 0x10000) >> 10));
        put(0xDC00 + ((code - 0x10000) & 0x3FF));
      } else {
        put(code > 0xFFFF ? '?' : code);
      }
    }
  }
  std::ofstream out(ToLocale(path), std::ios::binary | std::ios::trunc);
  out << bytes;  // a failure is not reported, by design of this call
}

/// Where the lines of the file's text begin: past a UTF-8 byte-order mark.
size_t Body(const std::string& bytes) { return bytes.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0; }
size_t Body(const std::wstring&) { return 0; }

/// Reads a key from the file's text.
template <typename Text>
std::wstring Get(const Text& text, const std::wstring& section, const std::wstring& key,
                 const std::wstring& default_value) {
  const std::vector<Line> lines = Parse(text, Body(text));
  const Spot spot = Find(lines, Trim(section), Trim(key));
  return spot.key == kNone ? default_value : Clean(lines[spot.key].value);
}

/// Sets a key in the file's text, keeping all else.
template <typename Text>
void Put(Text& text, const std::wstring& section, const std::wstring& key,
         const std::wstring& value) {
  const std::vector<Line> lines = Parse(text, Body(text));
  const Spot spot = Find(lines, Trim(section), Trim(key));
  const Text kCrLf = Encode(L"\r\n", text);
  if (spot.key != kNone) {
    // The key keeps its spelling from the file and the line keeps its line end.
    const Line& line = lines[spot.key];
    text.replace(line.begin, line.end - line.begin, Encode(line.name + L"=" + value, text));
  } else if (spot.header != kNone) {
    const Line& after = lines[spot.last];
    Text entry = Encode(Trim(key) + L"=" + value, text) + kCrLf;
    if (after.next == after.end) entry.insert(0, kCrLf);  // the file's last line had no end
    text.insert(after.next, entry);
  } else {
    if (text.size() > Body(text) && text.back() != '\n' && text.back() != '\r') text += kCrLf;
    text += Encode(L"[" + Trim(section) + L"]\r\n" + Trim(key) + L"=" + value + L"\r\n", text);
  }
}

}  // namespace

std::wstring ProfileGetString(const std::wstring& section, const std::wstring& key,
                              const std::wstring& default_value, const std::wstring& path) {
  const FileText file = Load(path);
  return file.encoding == FileText::k8Bit ? Get(file.bytes, section, key, default_value)
                                          : Get(file.wide, section, key, default_value);
}

void ProfileWriteString(const std::wstring& section, const std::wstring& key,
                        const std::wstring& value, const std::wstring& path) {
  FileText file = Load(path);
  if (file.encoding == FileText::k8Bit) {
    Put(file.bytes, section, key, value);
  } else {
    Put(file.wide, section, key, value);
  }
  Store(path, file);
}

}  // namespace kw
