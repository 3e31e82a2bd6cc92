// Placeholder: the TAP dialogue is being written.
#include "tap/sms_tap_sender.h"

#include "base/error.h"

namespace kw {
void SmsTapSender::Login(const std::wstring&) { throw AppError(531, L"TAP is not built yet."); }
void SmsTapSender::Send(const SmsMessage&) { throw AppError(531, L"TAP is not built yet."); }
std::wstring SmsTapSender::TapChecksum(const std::wstring&) { return L""; }
}  // namespace kw
