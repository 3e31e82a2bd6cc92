#include "sending/sms_sender.h"

#include "base/error.h"
#include "base/error_numbers.h"
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

Modem& SmsSender::Link() {
  if (!modem_) modem_ = std::make_unique<Modem>();
  return *modem_;
}

void SmsSender::SendSms(SmsMessage& msg) {
  try {
    msg.parsed_recipient = DigitsOnly(msg.recipient);
    if (msg.parsed_recipient.empty()) throw AppError(kNoRecipient, L"No recipient specified.");
    if (settings->protocol == L"TAP") {
      SendTap(msg);
    } else if (settings->protocol == L"UCP") {
      SendUcp(msg);
    }
    msg.date_sent = std::chrono::system_clock::now();
    TakeLinkDown();
    if (on_message_sent) on_message_sent(msg);
  } catch (...) {
    TakeLinkDown();
    throw;
  }
}

void SmsSender::TakeLinkDown() {
  if (!modem_) return;
  if (modem_->is_connected) modem_->HangUp();
  if (modem_->comm) modem_->comm->SetPortOpen(false);
}

void SmsSender::Connect() {
  Modem& link = Link();
  if (link.is_connected) return;
  if (!settings->sms_center_address.empty()) {
    // A centre on the network: no modem, no dial.
    link.connection_timeout = ToInt16(settings->connection_timeout);
    LogDebug(L"Connecting to sms center (" + settings->sms_center_address + L")");
    Raise(on_before_connect);
    link.ConnectSmsCenter(settings->sms_center_address);
    Raise(on_connect);
    return;
  }
  LogDebug(L"Initializing modem.");
  link.Initialize(settings->port);
  link.connection_timeout = ToInt16(settings->connection_timeout);
  LogDebug(L"Dialing sms center (" + settings->sms_center_number + L")");
  Raise(on_before_connect);
  const std::wstring dial_number = DigitsOnly(settings->dial_prefix + settings->sms_center_number);
  if (dial_number.size() < 3) throw AppError(kNoSmsCenter, L"There is no smsc provider specified.");
  link.DialSmsCenter(dial_number);
  if (!link.is_connected) throw AppError(kCarrierMissing, L"Unable to connect modem.");
  Raise(on_connect);
}

void SmsSender::SendTap(SmsMessage& msg) {
  Connect();
  if (!Link().is_connected) return;
  SmsTapSender tap;
  tap.modem = &Link();
  LogDebug(L"Starting tap login.");
  Raise(on_before_login);
  tap.Login(settings->authentication);
  if (!tap.authenticated) return;
  Raise(on_before_send);
  tap.Send(msg);
}

void SmsSender::SendUcp(SmsMessage& msg) {
  SmsUcpSender ucp;
  ucp.operation_type = settings->op_type;
  ucp.legitimization = settings->legitimization;
  ucp.authentication = settings->authentication;
  ucp.sender_number = settings->sender_number;
  ucp.text_length = ToInt16(settings->text_length);
  const std::wstring frame = ucp.PrepareMessage(msg);
  Connect();
  if (!Link().is_connected) return;
  ucp.modem = &Link();
  Raise(on_before_send);
  ucp.Send(frame);
}

}  // namespace kw
