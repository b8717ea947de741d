// The reports of the driver's HID device.
#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/wine/channel.h"
#include "tools/virtual_scanner/device_side/wine/hid_pipes.h"
#include "tools/virtual_scanner/device_side/wine/hid_plug.h"

namespace quillet::tools {
namespace {

class ReportPipe final : public DeviceEnd {
  public:
    ReportPipe() : m_Pipe(OpenHidPipe(QUILLET_HID_REPORT_PIPE, FILE_FLAG_OVERLAPPED)), m_Channel(m_Pipe.Get()) {}
    const std::string& HostPath() const override { return m_HostPath; }
    Received Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) override;
    Sent Send(std::string_view bytes, const platform::StopSignal& stop) override { return m_Channel.Send(bytes, stop); }

  private:
    const std::string m_HostPath = QUILLET_HID_REPORT_PIPE;
    const platform::UniqueHandle m_Pipe;
    PipeChannel m_Channel;
    bool m_HostTold = false;  // the receiving thread's
};

// Nobody tells a HID device whether a host has it open, so one counts as there from the beginning.
DeviceEnd::Received ReportPipe::Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) {
    if (!std::exchange(m_HostTold, true)) return Received::HostCame;
    return m_Channel.Receive(bytes, timeoutMs, stop);
}

}  // namespace

std::unique_ptr<DeviceEnd> DeviceEnd::NewReportSocket(const std::string& /*path*/, uint32_t /*mode*/) {
    return std::make_unique<ReportPipe>();
}

}  // namespace quillet::tools
