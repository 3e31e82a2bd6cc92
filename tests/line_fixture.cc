#include "line_fixture.h"

#include <algorithm>

#include "frontend/logging.h"

namespace kw::test {

LineFixture::LineFixture() {
  settings_->Protocol = L"TAP";
  settings_->Port = L"1";
  settings_->ConnectionTimeout = L"20";
  settings_->SmsCenterNumber = L"0612 345";
  sender_.Settings = settings_;
  UseModem(sim::ModemScenario{});
}

LineFixture::~LineFixture() { DebugMode = false; }

void LineFixture::UseModem(const sim::ModemScenario& scenario, std::unique_ptr<sim::Peer> centre) {
  modem_peer_ = std::make_unique<sim::SimModem>(scenario);
  if (centre) modem_peer_->SetCentre(std::move(centre));
  runtime_.set_peer(modem_peer_.get());
}

std::unique_ptr<Error> LineFixture::Send(const std::wstring& recipient, const std::wstring& text) {
  message_.Recipient = recipient;
  message_.Message = text;
  try {
    sender_.SendSms(message_);
    return nullptr;
  } catch (const Error& e) {
    return std::make_unique<Error>(e);
  }
}

std::vector<std::string> LineFixture::SendWithDebug(std::unique_ptr<Error>* error) {
  DebugMode = true;
  testing::internal::CaptureStdout();
  *error = Send();
  const std::string out = CapturedStdoutLf();
  DebugMode = false;
  std::vector<std::string> texts;
  for (size_t at = 0; at < out.size();) {
    const size_t end = std::min(out.find('\n', at), out.size());
    const std::string line = out.substr(at, end - at);
    texts.push_back(line.substr(line.find('\t') + 1));
    at = end + 1;
  }
  return texts;
}

std::string CapturedStdoutLf() {
  const std::string out = testing::internal::GetCapturedStdout();
  std::string lf;
  lf.reserve(out.size());
  for (size_t i = 0; i < out.size(); ++i) {
    if (!(out[i] == '\r' && i + 1 < out.size() && out[i + 1] == '\n')) lf.push_back(out[i]);
  }
  return lf;
}

std::vector<std::string> LineFixture::Lines(const std::string& prefix) const {
  std::vector<std::string> found;
  for (const std::string& line : runtime_.transcript()) {
    if (line.rfind(prefix, 0) == 0) found.push_back(line);
  }
  return found;
}

void UseConnectedLink(modem& link, bool open) {
  link.Initialize(L"1");
  link.comm->SetPortOpen(open);
  link.IsConnected = true;
}

bool InOrder(const std::vector<std::string>& haystack, const std::vector<std::string>& needles) {
  size_t next = 0;
  for (const std::string& line : haystack) {
    if (next < needles.size() && line == needles[next]) ++next;
  }
  return next == needles.size();
}

}  // namespace kw::test
