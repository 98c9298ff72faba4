// SPDX-License-Identifier: MIT
#include "DeviceServices.h"

#include "DeviceLog.h"
#include "DeviceStreams.h"

#include <QFile>

DeviceServices::DeviceServices(const DeviceConfig &config, DeviceLog &log)
    : m_config(config), m_log(log), m_screen(config.screenSize, config.model)
{
}

QByteArray DeviceServices::banner() const
{
    // No shell_v2: the server then sends plain "shell:" services.
    return QStringLiteral("device::ro.product.name=%1;ro.product.model=%2;ro.product.device=%3;features=cmd,stat_v2")
        .arg(m_config.product, m_config.model, m_config.deviceName)
        .toUtf8();
}

QStringList DeviceServices::commandWords(const QString &commandLine)
{
    // Split into ";"-separated commands and words, honouring quotes and backslashes.
    QList<QStringList> commands(1);
    QString word;
    bool inWord = false;
    QChar quote;
    auto endWord = [&] {
        if (inWord)
            commands.last().append(word);
        word.clear();
        inWord = false;
    };
    for (qsizetype i = 0; i < commandLine.size(); ++i) {
        const QChar c = commandLine.at(i);
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            else if (c == u'\\' && quote == u'"' && i + 1 < commandLine.size())
                word.append(commandLine.at(++i));
            else
                word.append(c);
        } else if (c == u'\'' || c == u'"') {
            quote = c;
            inWord = true;
        } else if (c == u'\\' && i + 1 < commandLine.size()) {
            word.append(commandLine.at(++i));
            inWord = true;
        } else if (c == u';') {
            endWord();
            commands.append(QStringList());
        } else if (c.isSpace()) {
            endWord();
        } else {
            word.append(c);
            inWord = true;
        }
    }
    endWord();
    QStringList last;
    for (QStringList words : commands) {
        if (words.isEmpty() || words.first() == u"export")
            continue;
        if (words.first() == u"exec")
            words.removeFirst();
        if (!words.isEmpty())
            last = words;
    }
    return last;
}

QByteArray DeviceServices::run(const QString &commandLine, bool &isStream, bool &dump)
{
    isStream = false;
    const QStringList words = commandWords(commandLine);
    const QString program = words.value(0);
    if (program == u"logcat") {
        if (words.contains(QStringLiteral("-c"))) {
            m_log.clear();
            return {};
        }
        isStream = true;
        dump = words.contains(QStringLiteral("-d"));
        return {};
    }
    if (program == u"ps") {
        const bool all = words.contains(QStringLiteral("-A"));
        if (all && m_config.oldDevice)
            return "bad pid '-A'\n";
        return m_config.oldDevice ? m_log.generator().oldProcessTable() : m_log.generator().processTable();
    }
    if (program == u"getprop") {
        const QString key = words.value(1);
        if (key == u"ro.product.model")
            return m_config.model.toUtf8() + '\n';
        if (key == u"ro.product.name")
            return m_config.product.toUtf8() + '\n';
        if (key == u"ro.product.device")
            return m_config.deviceName.toUtf8() + '\n';
        return "\n";
    }
    if (program == u"screencap")
        return m_screen.capture();
    if (program == u"input") {
        m_screen.input(words);
        if (!m_config.inputLog.isEmpty()) {
            QFile file(m_config.inputLog);
            if (file.open(QIODevice::Append))
                file.write(commandLine.toUtf8() + '\n');
        }
        return {};
    }
    if (program == u"echo")
        return words.mid(1).join(u' ').toUtf8() + '\n';
    if (program.isEmpty())
        return {};
    return "/system/bin/sh: " + program.toUtf8() + ": not found\n";
}

std::unique_ptr<DeviceStream> DeviceServices::open(const QByteArray &service)
{
    QByteArray text = service;
    while (text.endsWith('\0'))
        text.chop(1);
    const bool shell = text.startsWith("shell:");
    if (!shell && !text.startsWith("exec:"))
        return nullptr;
    const QString commandLine = QString::fromUtf8(text.mid(text.indexOf(':') + 1));
    bool isStream = false;
    bool dump = false;
    QByteArray output = run(commandLine, isStream, dump);
    std::unique_ptr<DeviceStream> stream;
    if (isStream)
        stream = std::make_unique<LogcatStream>(m_log, dump);
    else
        stream = std::make_unique<FixedStream>(std::move(output));
    // exec: is the binary-clean service; only shell: goes through the old pty translation.
    if (shell && m_config.crlf)
        stream = std::make_unique<CrlfStream>(std::move(stream));
    return stream;
}
