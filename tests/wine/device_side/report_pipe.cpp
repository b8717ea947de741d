// The reports of the driver's HID device.
#include "platform/device_side.h"
#include "wine/device_side/channel.h"
#include "wine/device_side/hid_plug.h"
#include "wine/hid_bus/pipes.h"

namespace quillet::platform {
namespace {

class ReportPipe final : public DeviceEnd {
  public:
    ReportPipe() : m_Pipe(OpenHidPipe(QUILLET_HID_REPORT_PIPE, FILE_FLAG_OVERLAPPED)), m_Channel(m_Pipe.Get()) {}
    const std::string& HostPath() const override { return m_HostPath; }
    Received Receive(std::string& bytes, uint32_t timeoutMs, const StopSignal& stop) override;
    Sent Send(std::string_view bytes, const StopSignal& stop) override { return m_Channel.Send(bytes, stop); }

  private:
    const std::string m_HostPath = QUILLET_HID_REPORT_PIPE;
    const UniqueHandle m_Pipe;
    PipeChannel m_Channel;
    bool m_HostTold = false;  // the receiving thread's
};

// Nobody tells a HID device whether a host has it open, so one counts as there from the beginning.
DeviceEnd::Received ReportPipe::Receive(std::string& bytes, uint32_t timeoutMs, const StopSignal& stop) {
    if (!std::exchange(m_HostTold, true)) return Received::HostCame;
    return m_Channel.Receive(bytes, timeoutMs, stop);
}

}  // namespace

std::unique_ptr<DeviceEnd> DeviceEnd::NewReportSocket(const std::string& /*path*/, uint32_t /*mode*/) {
    return std::make_unique<ReportPipe>();
}

}  // namespace quillet::platform
