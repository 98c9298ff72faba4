// SPDX-License-Identifier: MIT
#include "Android/InputCommandEncoder.h"

#include <cstdio>

InputWrapper InputCommandEncoder::inputForCharacter(char16_t character, bool commandKey, bool *unmapped)
{
    const auto c = static_cast<unsigned char>(character & 0xff);
    if (unmapped)
        *unmapped = false;
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return InputWrapper::withText(charText(c));
    switch (c) {
    case '#': return InputWrapper::withKeyCode(18);
    case '\'': return InputWrapper::withKeyCode(75);
    case '*': return InputWrapper::withKeyCode(17);
    case '+': return InputWrapper::withKeyCode(81);
    case ',': return InputWrapper::withKeyCode(55);
    case '-': return InputWrapper::withKeyCode(69);
    case '.': return InputWrapper::withKeyCode(56);
    case '/': return InputWrapper::withKeyCode(76);
    case ';': return InputWrapper::withKeyCode(74);
    case '=': return InputWrapper::withKeyCode(70);
    case '@': return InputWrapper::withKeyCode(77);
    case '[': return InputWrapper::withKeyCode(71);
    case '\\': return InputWrapper::withKeyCode(73);
    case ']': return InputWrapper::withKeyCode(72);
    case 0x7f: return InputWrapper::withKeyCode(commandKey ? qint64(BackKey) : qint64(67));
    case 0: return InputWrapper::withKeyCode(19); // the arrows: up, down, left, right
    case 1: return InputWrapper::withKeyCode(20);
    case 2: return InputWrapper::withKeyCode(21);
    case 3: return InputWrapper::withKeyCode(22);
    case '\t': return InputWrapper::withKeyCode(61);
    case '\n':
    case '\r': return InputWrapper::withKeyCode(66);
    default:
        if (unmapped)
            *unmapped = true;
        return InputWrapper::withText(charText(c));
    }
}

QString InputCommandEncoder::charText(char16_t character)
{
    return QString(QChar::fromLatin1(char(character & 0xff)));
}

QString InputCommandEncoder::escapeText(const QString &text)
{
    // Each character of the text is escaped once, so the ampersand a percent sign turns into is not
    // escaped again by the ampersand rule: "50%" gives "50\&".
    QString escaped;
    escaped.reserve(text.size() * 2);
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'%': escaped += QStringLiteral("\\&"); break;
        case u' ': escaped += QStringLiteral("%s"); break;
        case u'&':
        case u'(':
        case u')':
        case u'<':
        case u'>': escaped += u'\\'; escaped += c; break;
        default: escaped += c;
        }
    }
    return escaped;
}

QString InputCommandEncoder::textCommand(const QString &text)
{
    return QStringLiteral("shell:input text %1").arg(escapeText(text));
}

QString InputCommandEncoder::keyEventCommand(const QList<qint64> &codes)
{
    QString list;
    for (const qint64 code : codes)
        list += QString::number(code) + u' ';
    return QStringLiteral("shell:input keyevent %1").arg(list);
}

QString InputCommandEncoder::formatCoordinate(double value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.0f", value);
    return QString::fromLatin1(buffer);
}

QString InputCommandEncoder::tapCommand(QPointF point)
{
    return QStringLiteral("shell:input tap %1 %2").arg(formatCoordinate(point.x()), formatCoordinate(point.y()));
}

QString InputCommandEncoder::swipeCommand(QPointF from, QPointF to)
{
    return QStringLiteral("shell:input swipe %1 %2 %3 %4 %5")
        .arg(formatCoordinate(from.x()), formatCoordinate(from.y()), formatCoordinate(to.x()),
             formatCoordinate(to.y()))
        .arg(SwipeDurationMs);
}

QString InputCommandEncoder::touchCommand(const PointWrapper &touch)
{
    return touch.isSwipe ? swipeCommand(touch.point, touch.destPoint) : tapCommand(touch.point);
}

InputCommandEncoder::Batch InputCommandEncoder::takeBatch(std::deque<InputWrapper> &queue)
{
    Batch batch;
    while (!queue.empty()) {
        const InputWrapper &head = queue.front();
        if (head.isText()) {
            batch.text += *head.text;
            batch.kind = Batch::Text;
            queue.pop_front();
        } else if (batch.kind == Batch::Text) {
            batch.keyWaits = true; // the key goes on the next connection
            break;
        } else {
            while (!queue.empty() && !queue.front().isText()) {
                batch.codes.append(queue.front().keyCode);
                queue.pop_front();
            }
            batch.kind = Batch::Keys;
            batch.command = keyEventCommand(batch.codes);
            return batch;
        }
    }
    if (batch.kind == Batch::Text)
        batch.command = textCommand(batch.text);
    return batch;
}
