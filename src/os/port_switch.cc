#include "os/port_switch.h"

#include <utility>

#include "os/serial_errors.h"

namespace kw {
namespace {

class PortSwitch final : public SerialComm {
 public:
  explicit PortSwitch(PortMakers makers) : makers_(std::move(makers)) {
    // A closed device port answers for the switch until the first opening.
    Use(makers_.device(port_, L""), L"");
  }

  void SetCommPort(int16_t port) override {
    inner_->SetCommPort(port);
    port_ = port;
  }
  void SetRThreshold(int16_t count) override {
    inner_->SetRThreshold(count);
    rthreshold_ = count;
  }
  void SetSThreshold(int16_t count) override {
    inner_->SetSThreshold(count);
    sthreshold_ = count;
  }
  void SetRTSEnable(bool enable) override {
    inner_->SetRTSEnable(enable);
    rts_enable_ = enable;
  }
  void SetPortOpen(bool open) override {
    if (open && !inner_->PortOpen() && port_ >= 1) Pick();
    inner_->SetPortOpen(open);
  }
  bool PortOpen() const override { return inner_->PortOpen(); }
  void SetInBufferCount(int16_t count) override { inner_->SetInBufferCount(count); }
  void SetOutput(const std::wstring& text) override { inner_->SetOutput(text); }
  int16_t OutBufferCount() override { return inner_->OutBufferCount(); }
  std::wstring Input() override { return inner_->Input(); }
  bool CDHolding() override { return inner_->CDHolding(); }
  int16_t CommEvent() const override { return inner_->CommEvent(); }

 private:
  /// Makes the component for the port's entry, unless the one in use was made for it.
  void Pick() {
    const std::wstring entry = makers_.entry ? makers_.entry(port_) : std::wstring();
    if (entry == entry_) return;
    if (!IsNetworkEntry(entry)) {
      Use(makers_.device(port_, entry), entry);
      return;
    }
    NetAddress address;
    const std::wstring why = ParsePortEntry(entry, &address);
    if (!why.empty()) throw InvalidPort().WithCause(Cause::kBadAddress, entry, why);
    Use(makers_.network(address), entry);
  }

  /// Takes the component over with every setting made so far.
  void Use(std::unique_ptr<SerialComm> inner, const std::wstring& entry) {
    inner_ = std::move(inner);
    entry_ = entry;
    inner_->SetCommPort(port_);
    inner_->SetRThreshold(rthreshold_);
    inner_->SetSThreshold(sthreshold_);
    inner_->SetRTSEnable(rts_enable_);
    // The handlers are looked up at each call: they may be set or replaced at any time.
    inner_->OnComm = [this] {
      if (OnComm) OnComm();
    };
    inner_->OnNotice = [this](const std::wstring& text) {
      if (OnNotice) OnNotice(text);
    };
  }

  PortMakers makers_;
  std::unique_ptr<SerialComm> inner_;
  std::wstring entry_;  ///< the entry that inner_ was made for
  int16_t port_ = 1;
  int16_t rthreshold_ = 0;
  int16_t sthreshold_ = 0;
  bool rts_enable_ = false;
};

}  // namespace

std::unique_ptr<SerialComm> NewPortSwitch(PortMakers makers) {
  return std::make_unique<PortSwitch>(std::move(makers));
}

}  // namespace kw
