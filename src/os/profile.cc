#include "os/profile.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "os/profile_file.h"

namespace kw {

/// A profile file's text: its bytes, or for a file saved as UTF-16 (what Windows calls
/// "Unicode", with a byte-order mark), its characters.
struct ProfileText {
  enum Encoding { kLocale, kUtf8, kUtf16Le, kUtf16Be };
  Encoding encoding = kLocale;
  std::string bytes;  ///< the whole file, for an 8-bit one
  std::wstring wide;  ///< the characters behind the mark, for a UTF-16 one
};

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
  size_t cut = 0;    // where its text ends: at its line end or at its first NUL
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

wchar_t AsciiLower(wchar_t c) { return c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c; }

/// A name as the index keeps it: names differ only past ASCII case.
std::wstring Folded(std::wstring name) {
  std::transform(name.begin(), name.end(), name.begin(), AsciiLower);
  return name;
}

bool SameName(const std::wstring& a, const std::wstring& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(),
                    [](wchar_t x, wchar_t y) { return AsciiLower(x) == AsciiLower(y); });
}

/// The text between begin and end without the blanks at either side.
std::wstring Trimmed(const std::wstring& text, size_t begin, size_t end) {
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

std::wstring Trim(const std::wstring& text) { return Trimmed(text, 0, text.size()); }

/// Sorts one line's text (NUL already cut off) into header, key line or other.
void Classify(std::wstring&& text, Line& line) {
  const size_t first = std::find_if_not(text.begin(), text.end(), IsBlank) - text.begin();
  if (first < text.size() && text[first] == L'[') {
    // A "[" line without "]" is neither a header nor a key line.
    const size_t close = text.rfind(L']');
    if (close != std::wstring::npos) {
      line.kind = Line::kHeader;
      line.name = Trimmed(text, first + 1, close);
    }
    return;
  }
  const size_t eq = text.find(L'=');
  if (eq == std::wstring::npos) return;
  line.kind = Line::kKey;
  line.name = Trimmed(text, 0, eq);
  line.value = text.erase(0, eq + 1);
}

/// The text of a line of an 8-bit file, decoded in the file's encoding. ASCII reads the same in
/// every encoding a file can have, so most lines skip the conversion.
std::wstring Decode(const ProfileText& file, const std::string& bytes) {
  if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) == 0; })) {
    return std::wstring(bytes.begin(), bytes.end());
  }
  return DecodeProfileText(bytes, file.encoding == ProfileText::kUtf8);
}
/// The text of a line of a UTF-16 file: already characters.
std::wstring Decode(const ProfileText&, const std::wstring& text) { return text; }
/// A line's new text in the file's own form.
std::string Encode(const ProfileText& file, const std::wstring& text, const std::string&) {
  return EncodeProfileText(text, file.encoding == ProfileText::kUtf8);
}
std::wstring Encode(const ProfileText&, const std::wstring& text, const std::wstring&) {
  return text;
}

/// Where the lines of the file's text begin: past a UTF-8 byte-order mark.
size_t Body(const std::string& bytes) { return bytes.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0; }
size_t Body(const std::wstring&) { return 0; }

/// Whether the file's text is characters (a UTF-16 file) rather than bytes.
bool IsWide(const ProfileText& file) {
  return file.encoding == ProfileText::kUtf16Le || file.encoding == ProfileText::kUtf16Be;
}

/// The text of the line whose text lies from begin to end, decoded.
std::wstring LineText(const ProfileText& file, size_t begin, size_t end) {
  return IsWide(file) ? file.wide.substr(begin, end - begin)
                      : Decode(file, file.bytes.substr(begin, end - begin));
}

size_t Hash(const std::wstring& name) { return std::hash<std::wstring>()(name); }

/// Hands each line of the file's text (bytes, or the characters of a UTF-16 file) to visit, split
/// at CR LF, LF or a lone CR, from its body on. Each character is looked at a few times at most.
template <typename Text, typename Visit>
void ForEachLine(const ProfileText& file, const Text& text, Visit visit) {
  using Char = typename Text::value_type;
  static const Char kLineEnds[] = {'\r', '\n', 0};
  size_t pos = Body(text);
  while (pos < text.size()) {
    Line line;
    line.begin = pos;
    line.end = std::min(text.find_first_of(kLineEnds, pos), text.size());
    line.next = line.end;
    if (line.next < text.size() && text[line.next++] == '\r' && line.next < text.size() &&
        text[line.next] == '\n') {
      ++line.next;
    }
    // A NUL ends the line's text; looked for within the line only.
    line.cut = std::find(text.begin() + pos, text.begin() + line.end, Char(0)) - text.begin();
    Classify(Decode(file, text.substr(pos, line.cut - pos)), line);
    pos = line.next;
    visit(std::move(line));
  }
}

/// The lines of the file's text.
template <typename Text>
std::vector<Line> Lines(const ProfileText& file, const Text& text) {
  std::vector<Line> lines;
  ForEachLine(file, text, [&lines](Line&& line) { lines.push_back(std::move(line)); });
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

/// The UTF-16 code unit at byte i.
unsigned Unit(const std::string& bytes, size_t i, bool big_endian) {
  const unsigned first = static_cast<unsigned char>(bytes[i]);
  const unsigned second = static_cast<unsigned char>(bytes[i + 1]);
  return big_endian ? first << 8 | second : second << 8 | first;
}

/// Tells a file's encoding by its byte-order mark, else by its bytes (see ReadsAsUtf8).
ProfileText Identify(std::string bytes) {
  ProfileText file;
  const bool le = bytes.compare(0, 2, "\xFF\xFE") == 0;
  const bool be = bytes.compare(0, 2, "\xFE\xFF") == 0;
  if (!le && !be) {
    file.encoding = ReadsAsUtf8(bytes, Body(bytes)) ? ProfileText::kUtf8 : ProfileText::kLocale;
    file.bytes = std::move(bytes);
    return file;
  }
  file.encoding = le ? ProfileText::kUtf16Le : ProfileText::kUtf16Be;
  // Where a wide character holds any character, pairs of surrogates become one character; where
  // wide text is UTF-16 itself (Windows), they stay two units. A lone one stays as it is, so that
  // writing the file back gives the same units. An odd last byte is no character and is dropped.
  constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;
  file.wide.reserve(bytes.size() / 2);
  for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
    const unsigned unit = Unit(bytes, i, be);
    if (!kWideIsUtf16 && unit >= 0xD800 && unit <= 0xDBFF && i + 3 < bytes.size()) {
      const unsigned low = Unit(bytes, i + 2, be);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        file.wide.push_back(
            static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
        i += 2;
        continue;
      }
    }
    file.wide.push_back(static_cast<wchar_t>(unit));
  }
  return file;
}

/// Writes the file back in the encoding it was read in. Reports nothing.
void Store(const std::wstring& path, const ProfileText& file) {
  std::string bytes = file.bytes;
  if (IsWide(file)) {
    const bool be = file.encoding == ProfileText::kUtf16Be;
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
  WriteWholeFile(path, bytes);  // a failure is not reported, by design of this call
}

/// Sets a key in the file's text, keeping all else.
template <typename Text>
void Put(const ProfileText& file, Text& text, const std::wstring& section, const std::wstring& key,
         const std::wstring& value) {
  const std::vector<Line> lines = Lines(file, text);
  const Spot spot = Find(lines, Trim(section), Trim(key));
  const Text kCrLf = Encode(file, L"\r\n", text);
  if (spot.key != kNone) {
    // The key keeps its spelling from the file and the line keeps its line end.
    const Line& line = lines[spot.key];
    text.replace(line.begin, line.end - line.begin, Encode(file, line.name + L"=" + value, text));
  } else if (spot.header != kNone) {
    const Line& after = lines[spot.last];
    Text entry = Encode(file, Trim(key) + L"=" + value, text) + kCrLf;
    if (after.next == after.end) entry.insert(0, kCrLf);  // the file's last line had no end
    text.insert(after.next, entry);
  } else {
    if (text.size() > Body(text) && text.back() != '\n' && text.back() != '\r') text += kCrLf;
    text +=
        Encode(file, L"[" + Trim(section) + L"]\r\n" + Trim(key) + L"=" + value + L"\r\n", text);
  }
}

}  // namespace

Profile Profile::Parse(std::string bytes) {
  Profile profile;
  profile.text_ = std::make_shared<const ProfileText>(Identify(std::move(bytes)));
  const ProfileText& file = *profile.text_;
  // The keys of the section that the lines belong to; none before the first header and in a
  // section whose name came before, which a look-up never reaches.
  std::pair<size_t, size_t>* keys = nullptr;
  const auto index = [&profile, &keys](Line&& line) {
    if (line.kind == Line::kHeader) {
      const size_t next = profile.keys_.size();
      const auto added = profile.sections_.try_emplace(Folded(std::move(line.name)), next, next);
      keys = added.second ? &added.first->second : nullptr;
    } else if (line.kind == Line::kKey && keys) {
      profile.keys_.push_back({Hash(Folded(std::move(line.name))), line.begin, line.cut});
      keys->second = profile.keys_.size();
    }
  };
  if (IsWide(file)) {
    ForEachLine(file, file.wide, index);
  } else {
    ForEachLine(file, file.bytes, index);
  }
  return profile;
}

std::wstring Profile::Get(const std::wstring& section, const std::wstring& key,
                          const std::wstring& default_value) const {
  const auto keys = sections_.find(Folded(Trim(section)));
  if (keys == sections_.end()) return default_value;
  const std::wstring name = Folded(Trim(key));
  const size_t hash = Hash(name);
  // The key lines of the section in the file's order: the first of the name counts.
  for (size_t i = keys->second.first; i < keys->second.second; ++i) {
    if (keys_[i].hash != hash) continue;
    Line line;
    Classify(LineText(*text_, keys_[i].begin, keys_[i].end), line);
    if (Folded(line.name) == name) return Clean(line.value);
  }
  return default_value;
}

ProfileFile ReadProfile(const std::wstring& path) {
  ProfileFile read;
  std::string bytes;
  ReadWholeFile(path, bytes, read.problem);
  read.profile = Profile::Parse(std::move(bytes));
  return read;
}

std::wstring ProfileGetString(const std::wstring& section, const std::wstring& key,
                              const std::wstring& default_value, const std::wstring& path) {
  return ReadProfile(path).profile.Get(section, key, default_value);
}

void ProfileWriteString(const std::wstring& section, const std::wstring& key,
                        const std::wstring& value, const std::wstring& path) {
  std::string bytes;
  FileProblem ignored;  // a file that can't be read is written as a new one
  ReadWholeFile(path, bytes, ignored);
  ProfileText file = Identify(std::move(bytes));
  if (IsWide(file)) {
    Put(file, file.wide, section, key, value);
  } else {
    Put(file, file.bytes, section, key, value);
  }
  Store(path, file);
}

}  // namespace kw
