// SPDX-License-Identifier: MIT
#include "platform/linux/handle_file.h"

#include <poll.h>

#include "platform/event.h"

namespace quillet::platform {

using Outcome = WriteResult::Outcome;

namespace {

bool IsOver(const WriteEnd& end) {
    return end.limit != nullptr && end.limit->LeftMs() == 0;
}

}  // namespace

WriteResult HandleFile::Write(std::string_view bytes, const WriteEnd& end) {
    const DeviceHandle::File file = m_Handle.ForWriting();
    if (!file) return {Outcome::FailedAtOnce, 0, ENODEV};
    const WriteResult result = WriteTo(*file, bytes, end);
    if (result.outcome != Outcome::Written && IsGone(result.error)) m_Handle.ReportLoss();
    return result;
}

WriteResult HandleFile::WriteTo(const UniqueFd& file, std::string_view bytes, const WriteEnd& end) {
    WriteResult result{Outcome::Written, 0, 0};
    Outcome failure = Outcome::FailedAtOnce;
    bool lost = false;
    while (result.count < bytes.size()) {
        if (IsOver(end)) {
            OnWriteCut();
            return {failure, result.count, ECANCELED};
        }
        const std::string_view rest = bytes.substr(result.count);
        const ssize_t count = RetryInterrupted([&] { return WritePiece(file.Get(), rest); });
        if (count < 0 && errno != EAGAIN) return {failure, result.count, LastErrno()};
        failure = Outcome::FailedPending;
        if (count > 0) {
            result.count += static_cast<uint32_t>(count);
            if (IsOnePiece()) break;
            continue;
        }
        if (lost) return {failure, result.count, ENODEV};
        const DeviceWake wake = m_Handle.PollForWriting(file, end);
        if (wake.stopped) {
            OnWriteCut();
            return {failure, result.count, ECANCELED};
        }
        if (wake.error != 0) return {failure, result.count, wake.error};
        lost = wake.gone || wake.hungUp;  // tried once more, as the kernel may give a more precise code
    }
    return result;
}

}  // namespace quillet::platform
