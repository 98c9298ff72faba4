// SPDX-License-Identifier: MIT
#pragma once

#include "Android/AdbRequestSocket.h"
#include "Android/PointWrapper.h"

#include <QList>

// Sends taps and swipes (device pixels) to the device's "input" command, one connection per touch.
// A new touch replaces a connection still under way; the touch it carried stays queued and goes out
// only if a later connection finds it at the end of the queue.
//
// Threads: driven from one thread (the GUI thread), whose event loop carries its connections; no lock.
class TouchWriter : public AdbRequestSocket
{
public:
    enum Tag : long {
        TransportReplyTag = 0,
        InputReplyTag = 4,
    };

    TouchWriter();

    void sendTouchForPoint(QPointF point);
    void sendSwipeFrom(QPointF from, QPointF to);
    void processTouchEvent(const PointWrapper &touch);

    qsizetype queuedTouches() const { return m_pointQueue.size(); }

    void didDisconnect(const std::optional<AdbError> &error) override;

protected:
    void startRequest() override;

private:
    QList<PointWrapper> m_pointQueue;
};
