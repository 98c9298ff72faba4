// SPDX-License-Identifier: MIT
#include "Android/TouchWriter.h"

#include "Android/InputCommandEncoder.h"
#include "Helpers/Logger.h"

using Encoder = InputCommandEncoder;

TouchWriter::TouchWriter()
    : AdbRequestSocket({.transportReply = TransportReplyTag, .requestReplies = {InputReplyTag}})
{
}

void TouchWriter::sendTouchForPoint(QPointF point)
{
    QF_LOG(QStringLiteral("----- adb shell input tap %1 %2")
               .arg(Encoder::formatCoordinate(point.x()), Encoder::formatCoordinate(point.y())));
    m_pointQueue.append(PointWrapper::tap(point));
    connect();
}

void TouchWriter::sendSwipeFrom(QPointF from, QPointF to)
{
    QF_LOG(QStringLiteral("----- %1").arg(Encoder::swipeCommand(from, to)));
    m_pointQueue.append(PointWrapper::swipe(from, to));
    connect();
}

void TouchWriter::startRequest()
{
    // The newest touch goes first: it is the one this connection was opened for.
    if (m_pointQueue.isEmpty())
        return;
    processTouchEvent(m_pointQueue.takeLast());
}

void TouchWriter::processTouchEvent(const PointWrapper &touch)
{
    const QString command = Encoder::touchCommand(touch);
    QF_LOG(QStringLiteral("Sending: %1").arg(command));
    sendRequest(command, InputReplyTag);
}

void TouchWriter::didDisconnect(const std::optional<AdbError> &)
{
    // Deliberately without the base reaction.
    QF_LOG(QStringLiteral("socketDidDisconnect"));
    m_isConnecting = false;
}
