// Placeholder: the UCP frame and transfer are being written.
#include "ucp/sms_ucp_sender.h"

#include "base/error.h"

namespace kw {
std::wstring SmsUcpSender::PrepareMessage(const SmsMessage&) {
  throw AppError(551, L"UCP is not built yet.");
}
void SmsUcpSender::Send(const std::wstring&) { throw AppError(551, L"UCP is not built yet."); }
std::wstring SmsUcpSender::UcpChecksum(const std::wstring&) { return L""; }
}  // namespace kw
