// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// An error handed to a delegate: the ADB client's own errors (domain "logReader") and the socket
// layer's (domain AsyncSocket::errorDomain with its own codes, or "posix" with the system's errno).
struct AdbError
{
    QString domain;
    int code = 0;
    QString description;
    QString failureReason;
    QString recoverySuggestion;

    static AdbError logReaderError(int code, const QString &message);
    static AdbError posixError(int errnoCode);

    // "Error Domain=<domain> Code=<code> "<description>"", the form the diagnostic log shows.
    QString toString() const;

    friend bool operator==(const AdbError &, const AdbError &) = default;
};
