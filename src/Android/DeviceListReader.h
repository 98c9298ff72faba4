// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbRequestSocket.h"

#include <atomic>
#include <optional>

// Called on the thread that called DeviceListReader::connect().
class DeviceListReaderDelegate
{
public:
    virtual ~DeviceListReaderDelegate() = default;
    // The payload of "host:devices"; absent when it is not valid UTF-8.
    virtual void devicesReceived(const std::optional<QString> &list) = 0;
    // 0: the ADB server could not be reached; 1: no device (an empty list) or device not found.
    virtual void deviceListFailedWithError(int code) = 0;
};

// Asks the server for its device list ("host:devices"; no transport selection).
class DeviceListReader : public AdbRequestSocket
{
public:
    enum Tag : long {
        FailureLengthTag = 0,
        FailureMessageTag = 1,
        DevicesReplyTag = 2,
        ListLengthTag = 3,
        ListTag = 4,
    };

    DeviceListReader();

    void setDelegate(DeviceListReaderDelegate *delegate);
    DeviceListReaderDelegate *delegate() const;

protected:
    void startRequest() override;
    void requestAccepted(long replyTag) override;
    bool readOwn(QByteArrayView data, long tag) override;
    void adbNotRunningError(const AdbError &error) override;
    void adbDeviceNotFound(const AdbError &error) override;

private:
    std::atomic<DeviceListReaderDelegate *> m_delegate{nullptr};
};
