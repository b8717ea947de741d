#include "platform/linux/handle_file.h"

#include <poll.h>

#include "platform/event.h"

namespace quillet::platform {

using Outcome = WriteResult::Outcome;

WriteResult HandleFile::Write(std::string_view bytes, const StopSignal& stop) {
    const DeviceHandle::File file = m_Handle.ForWriting();
    if (!file) {
        return {Outcome::FailedAtOnce, 0, ENODEV};
    }
    const WriteResult result = WriteTo(*file, bytes, stop);
    if (result.outcome != Outcome::Written && MeansGone(result.error)) {
        m_Handle.ReportLoss();
    }
    return result;
}

WriteResult HandleFile::WriteTo(const UniqueFd& file, std::string_view bytes, const StopSignal& stop) {
    WriteResult result{Outcome::Written, 0, 0};
    Outcome failure = Outcome::FailedAtOnce;
    bool lost = false;
    while (result.count < bytes.size()) {
        const std::string_view rest = bytes.substr(result.count);
        const ssize_t count = RetryInterrupted([&] { return WritePiece(file.Get(), rest); });
        if (count < 0 && errno != EAGAIN) {
            return {failure, result.count, LastErrno()};
        }
        failure = Outcome::FailedPending;
        if (count > 0) {
            result.count += static_cast<uint32_t>(count);
            if (IsOnePiece()) {
                break;
            }
            continue;
        }
        if (lost) {
            return {failure, result.count, ENODEV};
        }
        const DeviceWake wake = m_Handle.Poll(file, POLLOUT, stop, kNoLimitMs);
        if (wake.stopped) {
            OnWriteCut();
            return {failure, result.count, ECANCELED};
        }
        if (wake.error != 0) {
            return {failure, result.count, wake.error};
        }
        lost = wake.gone || wake.hungUp;  // the kernel may have a more telling code; asked once more
    }
    return result;
}

}  // namespace quillet::platform
