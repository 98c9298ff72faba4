// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDialog>
#include <QStringList>

class AnalyticsHelper;
class QPlainTextEdit;
class QPushButton;

// "Send Crash Report?": shows what will be sent to the usage statistics server, with Send (the default)
// and Don't Send. Window-modal on the main window; opened, never run in a nested loop.
class CrashReportSheet : public QDialog
{
    Q_OBJECT

public:
    CrashReportSheet(const QString &server, const QByteArray &crashJson, QWidget *parent);

    QPushButton *sendButton() const { return m_send; }
    QPushButton *dontSendButton() const { return m_dontSend; }
    QPlainTextEdit *details() const { return m_details; }

    // At start: with a server set, offers the kept reports of `folder` one after another (Send queues the
    // crash request; either answer removes the file). Without one the reports stay (the newest
    // CrashReports::Kept) and the diagnostic log names each.
    static void offerPendingReports(QWidget *window, AnalyticsHelper &analytics, const QString &folder);

private:
    static void offerNext(QWidget *window, AnalyticsHelper &analytics, QStringList reports);

    QPlainTextEdit *m_details;
    QPushButton *m_send;
    QPushButton *m_dontSend;
};
