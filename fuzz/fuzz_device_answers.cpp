// SPDX-License-Identifier: MIT
// The server's answers that are parsed rather than streamed: the device list, the process list and the
// framing numbers of its replies.
#include "Android/AdbProtocol.h"
#include "FuzzInput.h"
#include "Session/DeviceListDatasource.h"
#include "Session/ProcessListAnswer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzSetUp();
    const QByteArrayView bytes = fuzzBytes(data, size);
    const QString text = fuzzText(data, size);
    (void)DeviceListDatasource::parseDeviceEntries(text);
    (void)ProcessListAnswer::parse(text);
    (void)AdbProtocol::hexDataToInteger(bytes);
    (void)AdbProtocol::isOkay(bytes);
    (void)AdbProtocol::parseStatusReply(bytes);
    (void)AdbProtocol::stringFromData(bytes);
    return 0;
}
