// SPDX-License-Identifier: MIT
#include "Helpers/MainThread.h"

#include "Helpers/Logger.h"

#include <QCoreApplication>
#include <QThread>

#include <cstdlib>

bool isMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void runOnMainThread(std::function<void()> fn)
{
    if (QCoreApplication *app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::move(fn), Qt::QueuedConnection);
}

void runOnMainThreadAndWait(std::function<void()> fn)
{
    if (isMainThread()) {
        fn();
        return;
    }
    if (QCoreApplication *app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::move(fn), Qt::BlockingQueuedConnection);
}

bool assertMainThread()
{
    if (isMainThread())
        return true;
    QF_LOG_ERROR(QStringLiteral("Method can only be called on main thread!"));
#ifndef QT_NO_DEBUG
    std::abort();
#else
    return false;
#endif
}
