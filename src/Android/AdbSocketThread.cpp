// SPDX-License-Identifier: MIT
#include "Android/AdbSocketThread.h"

#include "Android/AdbSocket.h"

#include <QCoreApplication>
#include <QThread>

AdbSocketThread::AdbSocketThread(std::unique_ptr<AdbSocket> socket, const QString &threadName)
    : m_socket(socket.release()), m_anchor(new QObject), m_thread(new QThread)
{
    m_thread->setObjectName(threadName);
    m_anchor->moveToThread(m_thread);
    // The QThread object must outlive a self-ending thread; the application's thread deletes it.
    if (QCoreApplication *app = QCoreApplication::instance())
        m_thread->moveToThread(app->thread());
    m_thread->start();
}

AdbSocketThread::~AdbSocketThread()
{
    AdbSocket *socket = m_socket;
    QObject *anchor = m_anchor;
    QThread *thread = m_thread;
    const bool onOwnThread = QThread::currentThread() == thread;
    if (onOwnThread)
        QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    // Queued even on the own thread: the caller may be inside a callback of this socket.
    QMetaObject::invokeMethod(
        anchor,
        [socket, anchor, thread] {
            delete socket;
            anchor->deleteLater(); // the thread's end runs pending deferred deletes
            thread->quit();
        },
        Qt::QueuedConnection);
    if (!onOwnThread) {
        thread->wait();
        delete thread;
    }
}

void AdbSocketThread::connect()
{
    post([](AdbSocket &socket) { socket.connect(); });
}

void AdbSocketThread::post(std::function<void(AdbSocket &)> work)
{
    AdbSocket *socket = m_socket;
    QMetaObject::invokeMethod(
        m_anchor, [socket, work = std::move(work)] { work(*socket); }, Qt::QueuedConnection);
}

AdbSocket *AdbSocketThread::socket() const
{
    return m_socket;
}

QThread *AdbSocketThread::thread() const
{
    return m_thread;
}
