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

/// Splits the bytes into lines at CR LF, LF or a lone CR, past a leading byte-order mark.
std::vector<Line> Parse(const std::string& bytes) {
  std::vector<Line> lines;
  size_t pos = bytes.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0;
  while (pos < bytes.size()) {
    Line line;
    line.begin = pos;
    line.end = std::min(bytes.find_first_of("\r\n", pos), bytes.size());
    line.next = line.end;
    if (line.next < bytes.size() && bytes[line.next++] == '\r' && line.next < bytes.size() &&
        bytes[line.next] == '\n') {
      ++line.next;
    }
    const size_t text_end = std::min(bytes.find('\0', pos), line.end);  // a NUL ends the line
    Classify(FromLocale(bytes.substr(pos, text_end - pos)), line);
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

}  // namespace

std::wstring ProfileGetString(const std::wstring& section, const std::wstring& key,
                              const std::wstring& default_value, const std::wstring& path) {
  const std::vector<Line> lines = Parse(ReadBytes(path));
  const Spot spot = Find(lines, Trim(section), Trim(key));
  return spot.key == kNone ? default_value : Clean(lines[spot.key].value);
}

void ProfileWriteString(const std::wstring& section, const std::wstring& key,
                        const std::wstring& value, const std::wstring& path) {
  std::string bytes = ReadBytes(path);
  const std::vector<Line> lines = Parse(bytes);
  const Spot spot = Find(lines, Trim(section), Trim(key));
  if (spot.key != kNone) {
    // The key keeps its spelling from the file and the line keeps its line end.
    const Line& line = lines[spot.key];
    bytes.replace(line.begin, line.end - line.begin, ToLocale(line.name + L"=" + value));
  } else if (spot.header != kNone) {
    const Line& after = lines[spot.last];
    std::string entry = ToLocale(Trim(key) + L"=" + value) + "\r\n";
    if (after.next == after.end) entry.insert(0, "\r\n");  // the file's last line had no end
    bytes.insert(after.next, entry);
  } else {
    const size_t body = bytes.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0;
    if (bytes.size() > body && bytes.back() != '\n' && bytes.back() != '\r') bytes += "\r\n";
    bytes += ToLocale(L"[" + Trim(section) + L"]\r\n" + Trim(key) + L"=" + value + L"\r\n");
  }
  std::ofstream out(ToLocale(path), std::ios::binary | std::ios::trunc);
  out << bytes;  // a failure is not reported, by design of this call
}

}  // namespace kw
