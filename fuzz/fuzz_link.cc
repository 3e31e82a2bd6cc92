#include "fuzz_link.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "base/error.h"

namespace kw::fuzz {

void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "PROPERTY FAILED: %s\n", property);
  std::abort();
}

std::string Input::Bytes(size_t n) {
  const size_t take = std::min(n, size_ - std::min(at_, size_));
  std::string bytes(reinterpret_cast<const char*>(data_) + at_, take);
  at_ += take;
  return bytes;
}

void ScriptedPeer::OnBytes(int64_t now_ms, const std::string&, sim::PeerLine& line) {
  if (!written_ && carrier_after_ms >= 0) {
    runtime_.At(now_ms + carrier_after_ms, [&line] { line.SetCarrier(true); });
  }
  written_ = true;
  int64_t at = now_ms;
  for (bool first = true; !input_.empty() && (first || (input_.Peek() & 0x80)); first = false) {
    at += (input_.Byte() & 0x7F) * 20;
    line.SendAt(at, input_.Bytes(input_.Byte()));
  }
}

void VirtualLine::Connect() {
  link.Initialize(L"1");
  link.comm->SetPortOpen(true);
  link.IsConnected = true;
}

void VirtualLine::TakeDown() {
  if (link.IsConnected) link.HangUp();
  link.comm->SetPortOpen(false);
  const auto& lines = runtime.transcript();
  Require(!link.comm->PortOpen() && std::count(lines.begin(), lines.end(), "-- open") ==
                                        std::count(lines.begin(), lines.end(), "-- close"),
          "the port ends closed");
}

std::string VirtualLine::Received() const {
  std::string bytes;
  for (const std::string& line : runtime.transcript()) {
    if (line.rfind("< ", 0) == 0) bytes += line.substr(2);
  }
  return bytes;
}

int Outcome(const std::function<void()>& step, std::wstring* description) {
  try {
    step();
    return 0;
  } catch (const Error& e) {
    if (description) *description = e.description();
    const int64_t n = static_cast<int64_t>(e.number()) - ErrorBase;
    return n >= 0 && n < 0x10000 ? static_cast<int>(n) : e.number();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "unexpected exception: %s\n", e.what());
    Require(false, "only the program's errors are raised");
  }
  return -1;
}

}  // namespace kw::fuzz
