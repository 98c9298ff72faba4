// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <functional>
#include <memory>

class AdbSocket;
class QObject;
class QThread;

// Runs one AdbSocket on a worker thread of its own that has an event loop, so connect() is called
// there and every callback of the reader (and so of its delegate) arrives on that thread.
//
// Destruction deletes the reader on its thread (no callback follows) and ends the thread. From any
// other thread it waits for that; from the reader's own thread (inside one of its callbacks) it
// cannot wait, so the thread winds down by itself. Never destroy it while holding a lock that the
// reader's delegate takes.
class AdbSocketThread
{
public:
    AdbSocketThread(std::unique_ptr<AdbSocket> socket, const QString &threadName);
    ~AdbSocketThread();
    AdbSocketThread(const AdbSocketThread &) = delete;
    AdbSocketThread &operator=(const AdbSocketThread &) = delete;

    // Posts socket->connect() to the worker thread.
    void connect();
    // Runs `work` with the socket on the worker thread (queued; dropped once destruction began).
    void post(std::function<void(AdbSocket &)> work);

    AdbSocket *socket() const;
    QThread *thread() const;

private:
    AdbSocket *m_socket; // deleted on m_thread
    QObject *m_anchor;   // lives on m_thread; context of posted work
    QThread *m_thread;
};
