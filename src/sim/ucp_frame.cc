#include "sim/ucp_frame.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "sim/options.h"

namespace kw::sim {
namespace {

constexpr char kStx = 0x02;
constexpr char kEtx = 0x03;

/// Where each operation carries the message text (1-based), and how many data fields it has.
struct OperationLayout {
  const char* operation;
  size_t text_field;
  size_t field_count;
};

constexpr OperationLayout kLayouts[] = {
    {"01", 5, 5},
    {"03", 16, 16},
    {"30", 10, 10},
    {"51", 20, 32},
};

const OperationLayout* LayoutOf(const std::string& operation) {
  for (const OperationLayout& layout : kLayouts) {
    if (operation == layout.operation) return &layout;
  }
  return nullptr;
}

std::vector<std::string> SplitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t from = 0;
  for (size_t at = text.find(separator); at != std::string::npos; at = text.find(separator, from)) {
    parts.push_back(text.substr(from, at - from));
    from = at + 1;
  }
  parts.push_back(text.substr(from));
  return parts;
}

/// Decodes pairs of hexadecimal digits into bytes; false (and the text kept) when they aren't.
bool DecodeHex(const std::string& hex, std::string& text) {
  if (hex.size() % 2 != 0) return false;
  std::string out;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = HexDigitValue(hex[i]);
    const int low = HexDigitValue(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<char>(high * 16 + low));
  }
  text = std::move(out);
  return true;
}

}  // namespace

bool ReadUcpFrame(const std::string& body, UcpFrame& frame, std::string& note) {
  const std::vector<std::string> header = SplitAt(body, '/');
  // Transaction number, length, type and operation come first; the checksum stands last.
  size_t data_start = 0;
  for (int i = 0; i < 4 && data_start != std::string::npos; ++i) {
    const size_t slash = body.find('/', data_start);
    data_start = slash == std::string::npos ? slash : slash + 1;
  }
  const size_t last = body.rfind('/');
  if (data_start == std::string::npos || last < data_start || header[2] != "O") {
    note = "not an operation frame: " + ShownInNote(body);
    return false;
  }

  frame.operation = header[3];
  frame.length_ok = header[1].size() == 5 &&
                    std::all_of(header[1].begin(), header[1].end(),
                                [](char c) { return c >= '0' && c <= '9'; }) &&
                    std::stoul(header[1]) == body.size();
  frame.checksum_ok = UcpSum(body.substr(0, last + 1)) == body.substr(last + 1);

  const std::string data = body.substr(data_start, last - data_start);
  const std::vector<std::string> fields = SplitAt(data, '/');
  frame.field_count = data.empty() ? 0 : fields.size();
  note = "op " + frame.operation;
  if (const OperationLayout* layout = LayoutOf(frame.operation)) {
    auto field = [&fields](size_t n) { return n <= fields.size() ? fields[n - 1] : ""; };
    frame.recipient = field(1);
    frame.sender = field(2);
    frame.auth = field(3);
    const std::string hex = field(layout->text_field);
    frame.text_is_hex = DecodeHex(hex, frame.text);
    if (!frame.text_is_hex) frame.text = hex;
    note += ", recipient " + ShownInNote(frame.recipient) + ", sender " +
            ShownInNote(frame.sender) + ", auth \"" + ShownInNote(frame.auth) + "\", text \"" +
            ShownInNote(frame.text) + "\"";
    if (!frame.text_is_hex) note += " (not hexadecimal)";
    if (frame.field_count != layout->field_count) {
      note += ", " + std::to_string(frame.field_count) + " fields (expected " +
              std::to_string(layout->field_count) + ")";
    }
  } else {
    note += " (unknown operation), data \"" + ShownInNote(data) + "\"";
  }
  note += frame.length_ok ? ", length ok" : ", length bad";
  note += frame.checksum_ok ? ", checksum ok" : ", checksum bad";
  return true;
}

bool IsKnownUcpOperation(const std::string& operation) { return LayoutOf(operation) != nullptr; }

std::string UcpSum(const std::string& text) {
  unsigned sum = 0;
  for (unsigned char c : text) sum += c;
  char digits[4];
  std::snprintf(digits, sizeof digits, "%02X", sum & 0xFF);
  return digits;
}

std::string UcpReply(const std::string& operation, char letter, const std::string& fields) {
  // The program reads the letter at a fixed offset, which holds only for a two-character
  // operation; a real centre answers an unknown operation in the same fixed layout.
  const std::string op = operation.size() == 2 ? operation : "00";
  const std::string tail = "/R/" + op + "/" + std::string(1, letter) + "/" + fields + "/";
  // The length counts from the transaction number through the checksum: "01/" and the five
  // digits, the tail and two checksum digits.
  char length[8];
  std::snprintf(length, sizeof length, "%05zu", 3 + 5 + tail.size() + 2);
  const std::string body = "01/" + std::string(length) + tail;
  return kStx + body + UcpSum(body) + kEtx;
}

std::string ShownInNote(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
      out += escaped;
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  return out;
}

}  // namespace kw::sim
