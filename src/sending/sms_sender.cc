#include "sending/sms_sender.h"

#include "base/error.h"
#include "base/int16.h"
#include "base/string_util.h"
#include "log/logging.h"
#include "tap/sms_tap_sender.h"
#include "ucp/sms_ucp_sender.h"

namespace kw {
namespace {

void Raise(const std::function<void()>& event) {
  if (event) event();
}

}  // namespace

modem& SmsSender::Link() {
  if (!modem_) modem_ = std::make_unique<modem>();
  return *modem_;
}

void SmsSender::SendSms(SmsMessage& msg) {
  try {
    msg.ParsedRecipient = DigitsOnly(msg.Recipient);
    if (msg.ParsedRecipient.empty()) throw AppError(581, L"No recipient specified.");
    if (Settings->Protocol == L"TAP") {
      SendTap(msg);
    } else if (Settings->Protocol == L"UCP") {
      SendUcp(msg);
    }
    msg.DateSent = std::chrono::system_clock::now();
    TakeLinkDown();
    if (OnMessageSent) OnMessageSent(msg);
  } catch (...) {
    TakeLinkDown();
    throw;
  }
}

void SmsSender::TakeLinkDown() {
  if (!modem_) return;
  if (modem_->IsConnected) modem_->HangUp();
  if (modem_->comm) modem_->comm->SetPortOpen(false);
}

void SmsSender::Connect() {
  modem& link = Link();
  if (link.IsConnected) return;
  LogDebug(L"Initializing modem.");
  link.Initialize(Settings->Port);
  link.ConnectionTimeout = ToInt16(Settings->ConnectionTimeout);
  LogDebug(L"Dialing sms center (" + Settings->SmsCenterNumber + L")");
  Raise(OnBeforeConnect);
  const std::wstring dialNumber = DigitsOnly(Settings->DialPrefix + Settings->SmsCenterNumber);
  if (dialNumber.size() < 3) throw AppError(582, L"There is no smsc provider specified.");
  link.DialSmsCenter(dialNumber);
  if (!link.IsConnected) throw AppError(580, L"Unable to connect modem.");
  Raise(OnConnect);
}

void SmsSender::SendTap(SmsMessage& msg) {
  Connect();
  if (!Link().IsConnected) return;
  SmsTapSender tap;
  tap.modem = &Link();
  LogDebug(L"Starting tap login.");
  Raise(OnBeforeLogin);
  tap.Login(Settings->Authentication);
  if (!tap.Authenticated) return;
  Raise(OnBeforeSend);
  tap.Send(msg);
}

void SmsSender::SendUcp(SmsMessage& msg) {
  SmsUcpSender ucp;
  ucp.OperationType = Settings->OpType;
  ucp.Legitimization = Settings->Legitimization;
  ucp.Authentication = Settings->Authentication;
  ucp.SenderNumber = Settings->SenderNumber;
  ucp.TextLength = ToInt16(Settings->TextLength);
  const std::wstring frame = ucp.PrepareMessage(msg);
  Connect();
  if (!Link().IsConnected) return;
  ucp.modem = &Link();
  Raise(OnBeforeSend);
  ucp.Send(frame);
}

}  // namespace kw
