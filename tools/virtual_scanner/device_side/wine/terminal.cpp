// A pseudo-terminal as a serial device: the bridge holds it, and hosts open it by a COM name.
#include <cstdio>
#include <exception>

#include "tools/virtual_scanner/device_side/device_side.h"
#include "tools/virtual_scanner/device_side/wine/bridge.h"
#include "tools/virtual_scanner/device_side/wine/channel.h"

namespace quillet::tools {
namespace {

class Terminal final : public DeviceEnd {
  public:
    Terminal() : m_Bridge(NewBridgeTerminal()), m_Channel(m_Bridge.socket.Get()) {}
    ~Terminal() override;
    const std::string& HostPath() const override { return m_Bridge.hostPath; }
    Received Receive(std::string& bytes, uint32_t timeoutMs, const platform::StopSignal& stop) override {
        return m_Channel.Receive(bytes, timeoutMs, stop);
    }
    Sent Send(std::string_view bytes, const platform::StopSignal& stop) override { return m_Channel.Send(bytes, stop); }

  private:
    const BridgeTerminal m_Bridge;
    SocketChannel m_Channel;
};

// The end of the connection alone would pull it too, but only a moment later.
Terminal::~Terminal() {
    try {
        PullBridgeTerminal(m_Bridge.hostPath);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
}

}  // namespace

std::unique_ptr<DeviceEnd> DeviceEnd::NewTerminal(uint32_t /*mode*/) {
    return std::make_unique<Terminal>();
}

}  // namespace quillet::tools
