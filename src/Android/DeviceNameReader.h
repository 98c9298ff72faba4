// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbRequestSocket.h"

#include <atomic>
#include <optional>

// Called on the thread that called DeviceNameReader::connect(), at most one of the two per connection.
class DeviceNameReaderDelegate
{
public:
    virtual ~DeviceNameReaderDelegate() = default;
    virtual void deviceNameReceived(const QString &model, const QString &deviceId) = 0;
    // The server's failure message as an error in domain "logReader", code 1.
    virtual void deviceNameFailedWithError(const AdbError &error, const QString &deviceId) = 0;
};

// Reads "getprop ro.product.model" of one device.
class DeviceNameReader : public AdbRequestSocket
{
public:
    enum Tag : long {
        FailureLengthTag = 0,
        FailureMessageTag = 1,
        TransportReplyTag = 2,
        GetpropReplyTag = 3,
        LineTag = 4,
    };

    DeviceNameReader();

    void setDelegate(DeviceNameReaderDelegate *delegate);
    DeviceNameReaderDelegate *delegate() const;

    void didDisconnect(const std::optional<AdbError> &error) override;

    // The first non-empty line of getprop's output, without its terminator; absent if there is none
    // or the output is not UTF-8. Each line is written to the diagnostic log.
    static std::optional<QString> modelFromOutput(QByteArrayView output);

protected:
    void startRequest() override;
    void failed(const QString &message) override;

private:
    std::atomic<DeviceNameReaderDelegate *> m_delegate{nullptr};
};
