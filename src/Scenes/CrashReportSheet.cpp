// SPDX-License-Identifier: MIT
#include "Scenes/CrashReportSheet.h"

#include "Analytics/AnalyticsHelper.h"
#include "Analytics/CrashReports.h"
#include "Helpers/Logger.h"
#include "Helpers/Settings.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFontDatabase>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// Every field that is sent, one a line; the backtrace and the log lines spelled out below their key.
QString readableReport(const QByteArray &crashJson)
{
    const QJsonObject crash = QJsonDocument::fromJson(crashJson).object();
    QString text;
    for (auto it = crash.begin(); it != crash.end(); ++it) {
        const QString value = it.value().isString()
                                  ? it.value().toString()
                                  : QString::fromUtf8(QJsonDocument(QJsonArray{it.value()}).toJson(QJsonDocument::Compact))
                                        .mid(1)
                                        .chopped(1);
        if (value.contains(QLatin1Char('\n')))
            text += it.key() + QStringLiteral(":\n    ") + value.split(QLatin1Char('\n')).join(QStringLiteral("\n    ")) + QLatin1Char('\n');
        else
            text += it.key() + QStringLiteral(": ") + value + QLatin1Char('\n');
    }
    return text;
}

} // namespace

CrashReportSheet::CrashReportSheet(const QString &server, const QByteArray &crashJson, QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("crashReportSheet"));
    setWindowTitle(QStringLiteral("Send Crash Report?"));
    setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(this);
    auto *title = new QLabel(QStringLiteral("Send Crash Report?"), this);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    auto *text = new QLabel(tr("Quillfern quit unexpectedly the last time it ran. This report would be sent to "
                               "%1 to help fix the fault; nothing else is in it:")
                                .arg(server.toHtmlEscaped()),
                            this);
    text->setWordWrap(true);
    m_details = new QPlainTextEdit(this);
    m_details->setObjectName(QStringLiteral("crashReportDetails"));
    m_details->setReadOnly(true);
    m_details->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_details->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_details->setPlainText(readableReport(crashJson));
    auto *buttons = new QDialogButtonBox(this);
    m_dontSend = buttons->addButton(QStringLiteral("Don't Send"), QDialogButtonBox::RejectRole);
    m_send = buttons->addButton(QStringLiteral("Send"), QDialogButtonBox::AcceptRole);
    m_send->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(title);
    layout->addWidget(text);
    layout->addWidget(m_details, 1);
    layout->addWidget(buttons);
    resize(640, 420);
}

void CrashReportSheet::offerPendingReports(QWidget *window, AnalyticsHelper &analytics, const QString &folder)
{
    const QStringList reports = CrashReports(folder).pending();
    if (reports.isEmpty())
        return;
    if (!analytics.isEnabled()) {
        for (const QString &path : reports)
            QF_LOG(QStringLiteral("crash report kept (no usage statistics server): %1").arg(path));
        return;
    }
    offerNext(window, analytics, reports);
}

void CrashReportSheet::offerNext(QWidget *window, AnalyticsHelper &analytics, QStringList reports)
{
    while (!reports.isEmpty()) {
        const QString path = reports.takeFirst();
        const std::optional<CrashReport> report = CrashReports::read(path);
        if (!report) {
            QF_LOG(QStringLiteral("unreadable crash report removed: %1").arg(path));
            QFile::remove(path);
            continue;
        }
        const QByteArray json = CrashReports::toCrashJson(*report);
        auto *sheet = new CrashReportSheet(Settings::analyticsServer(), json, window);
        sheet->setAttribute(Qt::WA_DeleteOnClose);
        QPointer<AnalyticsHelper> helper(&analytics);
        QPointer<QWidget> owner(window);
        connect(sheet, &QDialog::finished, sheet, [helper, owner, path, json, reports](int result) {
            const bool send = result == QDialog::Accepted;
            QF_LOG(QStringLiteral("crash report %1: %2").arg(send ? QStringLiteral("sent") : QStringLiteral("not sent"), path));
            if (send && helper)
                helper->sendCrashReport(json);
            QFile::remove(path);
            if (helper)
                offerNext(owner, *helper, reports);
        });
        sheet->open();
        return;
    }
}
