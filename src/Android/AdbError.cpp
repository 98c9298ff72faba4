// SPDX-License-Identifier: MIT
#include "Android/AdbError.h"

#include <QtGlobal>

AdbError AdbError::logReaderError(int code, const QString &message)
{
    return AdbError{QStringLiteral("logReader"), code, message, message, message};
}

AdbError AdbError::posixError(int errnoCode)
{
    const QString text = qt_error_string(errnoCode);
    return AdbError{QStringLiteral("posix"), errnoCode, text, text, QString()};
}

QString AdbError::toString() const
{
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"").arg(domain).arg(code).arg(description);
}
