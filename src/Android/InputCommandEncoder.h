// SPDX-License-Identifier: MIT
#pragma once

#include "Android/InputWrapper.h"
#include "Android/PointWrapper.h"

#include <QList>
#include <QString>

#include <deque>

// The "input" shell commands the writers send and the key mapping behind them, as pure functions:
// no socket, no thread, no lock.
class InputCommandEncoder
{
public:
    // Android key codes the remote screen sends by name.
    enum KeyCode : qint64 { HomeKey = 3, BackKey = 4, MenuKey = 82 };
    // Swipes always last this long.
    static constexpr int SwipeDurationMs = 100;

    // What one character of a host key event queues; only its low eight bits count. Letters and digits
    // become text, the mapped punctuation and control values key codes (delete is back when
    // commandKey, the Ctrl key here, is held), and every other value text as well, with
    // *unmapped set so the caller can log it.
    static InputWrapper inputForCharacter(char16_t character, bool commandKey, bool *unmapped = nullptr);
    // The one-character text for addChar: the low eight bits as a Latin-1 character.
    static QString charText(char16_t character);

    // The escaping of "input text": "%" -> backslash "&", " " -> "%s", and "&", "(", ")", "<", ">" get a
    // backslash. A percent sign therefore arrives as an ampersand.
    static QString escapeText(const QString &text);
    static QString textCommand(const QString &text);
    // "shell:input keyevent 3 4 ": every code followed by a blank.
    static QString keyEventCommand(const QList<qint64> &codes);
    // Coordinates rounded as C's "%.0f" does.
    static QString tapCommand(QPointF point);
    static QString swipeCommand(QPointF from, QPointF to);
    static QString touchCommand(const PointWrapper &touch);

    // One connection's batch, taken from the head of the queue: either the text inputs up to the
    // first key input, or (when the head is a key input) the run of key inputs.
    struct Batch
    {
        enum Kind { Nothing, Text, Keys } kind = Nothing;
        QString text;        // the collected text, unescaped
        QList<qint64> codes; // the collected key codes
        bool keyWaits = false; // text was sent first and a key input stays queued
        QString command;     // the request to send; empty for Nothing
    };
    static Batch takeBatch(std::deque<InputWrapper> &queue);

    // "%.0f" of C's printf: halves round to even.
    static QString formatCoordinate(double value);
};
