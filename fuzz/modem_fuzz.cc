// The dial's receive path and the judging of the modem's result lines, under the virtual clock:
// the modem answers the dial command with the input's bytes, in pieces, at the input's times.
#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "base/text.h"
#include "fuzz_link.h"

using kw::fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kw::fuzz::Input input{data, size};
  const int16_t timeout = static_cast<int16_t>(input.Byte() % 40) - 1;  // -1 to 38 seconds
  const uint8_t carrier = input.Byte();  // 0: never; else it rises (n - 1) * 250 ms after the dial
  kw::fuzz::VirtualLine line(input);
  line.peer.carrier_after_ms = carrier == 0 ? -1 : (carrier - 1) * 250;
  line.link.Initialize(L"1");
  line.link.ConnectionTimeout = timeout;

  std::wstring said;
  const int outcome = kw::fuzz::Outcome([&] { line.link.DialSmsCenter(L"0800123456"); }, &said);
  const bool connected = line.link.IsConnected;
  Require(std::set<int>{0, 523, 524, 525, 526}.count(outcome), "the dial ends in a documented way");
  Require(line.ElapsedMs() < (std::max<int64_t>(timeout, 0) + 34) * 1000,
          "the dial ends within the time-out and the carrier wait");
  // A line ends at CR; an LF anywhere is no part of it.
  std::wstring lines = line.link.recvBuffer;
  lines.erase(std::remove(lines.begin(), lines.end(), L'\n'), lines.end());
  Require(outcome != 0 || lines.find(L"CONNECT") != std::wstring::npos,
          "no connection without a CONNECT");
  Require(outcome != 0 || connected == line.link.comm->CDHolding(),
          "connected exactly when the carrier holds");
  const std::wstring refused = L"An Input Error occurred. (";  // the modem's line stands after it
  Require(outcome != 525 || (said.rfind(refused, 0) == 0 && said.back() == L')' &&
                             said.find_first_of(L"\r\n") == std::wstring::npos &&
                             said.find(L"ERROR") != std::wstring::npos),
          "ERROR shows the modem's one line");
  Require(kw::FromLine(line.Received()).rfind(line.link.recvBuffer, 0) == 0,
          "the receive buffer holds what came, in order");
  line.TakeDown();
  // The only commands the program ever gives the modem.
  Require(line.runtime.written() == std::string("ATDT0800123456\r") + (connected ? "ATH" : ""),
          "only the dial command and, when connected, ATH go out");
  return 0;
}
