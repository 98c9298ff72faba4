// SPDX-License-Identifier: MIT
#include "Android/TypeWriter.h"

#include "Android/AdbProtocol.h"
#include "Android/InputCommandEncoder.h"
#include "Helpers/Logger.h"

#include <QMutexLocker>

#include <cstdio>

namespace {

QString hexOfSigned(char16_t character)
{
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%.2X", unsigned(int(static_cast<signed char>(character & 0xff))));
    return QString::fromLatin1(buffer);
}

} // namespace

TypeWriter::TypeWriter()
    : AdbRequestSocket({.transportReply = TransportReplyTag, .requestReplies = {InputReplyTag}})
{
}

bool TypeWriter::sendKeyEvent(const QString &characters, bool commandKey)
{
    for (const QChar c : characters) {
        bool unmapped = false;
        const InputWrapper input = InputCommandEncoder::inputForCharacter(c.unicode(), commandKey, &unmapped);
        if (unmapped)
            QF_LOG(QStringLiteral("TODO: handle char: %1").arg(hexOfSigned(c.unicode())));
        if (addInput(input))
            return true;
    }
    return false;
}

bool TypeWriter::sendMenuKey()
{
    return addKeyEvent(InputCommandEncoder::MenuKey);
}

bool TypeWriter::sendHomeKey()
{
    return addKeyEvent(InputCommandEncoder::HomeKey);
}

bool TypeWriter::sendBackKey()
{
    return addKeyEvent(InputCommandEncoder::BackKey);
}

bool TypeWriter::addChar(char16_t character)
{
    return addInput(InputWrapper::withText(InputCommandEncoder::charText(character)));
}

bool TypeWriter::addKeyEvent(qint64 keyCode)
{
    return addInput(InputWrapper::withKeyCode(keyCode));
}

bool TypeWriter::addInput(const InputWrapper &input)
{
    qsizetype count = 0;
    {
        QMutexLocker lock(&m_lock);
        if (qsizetype(m_inputs.size()) >= MaxPendingInputs)
            return true;
        m_inputs.push_back(input);
        count = qsizetype(m_inputs.size());
    }
    QF_LOG(QStringLiteral("pending inputs = %1").arg(count));
    processInputs();
    return false;
}

void TypeWriter::processInputs()
{
    {
        QMutexLocker lock(&m_lock);
        const bool connected = isConnected();
        QF_LOG(QStringLiteral("isConnected: %1, isProcessingInputs: %2").arg(int(connected)).arg(int(m_processingInputs)));
        if (m_inputs.empty()) {
            QF_LOG(QStringLiteral("Nothing else to send: %1").arg(qsizetype(m_inputs.size())));
            return;
        }
        if (connected || m_processingInputs) {
            QF_LOG(QStringLiteral("Ignore processInputs isConnected= %1, processingInputs=%2")
                       .arg(int(connected))
                       .arg(int(m_processingInputs)));
            return;
        }
        m_processingInputs = true;
    }
    // Outside the lock: the connection's callbacks take it.
    QF_LOG(QStringLiteral("connect"));
    connect();
}

qsizetype TypeWriter::pendingInputs() const
{
    QMutexLocker lock(&m_lock);
    return qsizetype(m_inputs.size());
}

bool TypeWriter::isProcessingInputs() const
{
    QMutexLocker lock(&m_lock);
    return m_processingInputs;
}

void TypeWriter::updateProcessing(bool processing)
{
    QMutexLocker lock(&m_lock);
    m_processingInputs = processing;
}

void TypeWriter::startRequest()
{
    InputCommandEncoder::Batch batch;
    {
        QMutexLocker lock(&m_lock);
        Q_ASSERT_X(isConnected(), "startRequest", "ADB not connected!!!");
        Q_ASSERT_X(m_processingInputs, "startRequest", "Should be in processingInputs state");
        batch = InputCommandEncoder::takeBatch(m_inputs);
    }
    switch (batch.kind) {
    case InputCommandEncoder::Batch::Nothing:
        return;
    case InputCommandEncoder::Batch::Keys:
        QF_LOG(QStringLiteral("Sending: %1").arg(batch.command));
        break;
    case InputCommandEncoder::Batch::Text:
        if (batch.keyWaits)
            QF_LOG(QStringLiteral("Already have text to process to process send text now: \"%1\"").arg(batch.text));
        QF_LOG(QStringLiteral("Sending: \"%1\"").arg(batch.command));
        break;
    }
    sendRequest(batch.command, InputReplyTag, InputTimeout);
}

void TypeWriter::requestAccepted(long)
{
    // Waits for a line of output or the end of the connection; a line is then judged as a transport
    // reply and, not being "OKAY", ends the connection.
    readWithTag(TransportReplyTag);
}

void TypeWriter::replyNotOkay(QByteArrayView reply, long tag)
{
    const QString got = AdbProtocol::stringFromData(reply).value_or(QString());
    QF_LOG(QStringLiteral("RX: %1").arg(got));
    QF_LOG_ERROR(QStringLiteral("Error%1: response was not 'OKAY'. Got: '%2'")
                     .arg(tag == TransportReplyTag ? 1 : 2)
                     .arg(got));
    stop();
}

void TypeWriter::didDisconnect(const std::optional<AdbError> &error)
{
    // Deliberately without the base reaction: the writer just moves on to the next batch.
    QF_LOG(QStringLiteral("socketDidDisconnect"));
    if (error)
        QF_LOG(QStringLiteral("error: %1").arg(error->toString()));
    m_isConnecting = false;
    updateProcessing(false);
    processInputs();
}
