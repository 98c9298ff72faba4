// SPDX-License-Identifier: MIT
#include "Android/InputCommandEncoder.h"

#include <gtest/gtest.h>

using Encoder = InputCommandEncoder;

TEST(InputCommandEncoder, MapsCharactersToTextOrKeyCodes)
{
    const struct
    {
        char16_t c;
        bool command;
        InputWrapper expected;
        bool unmapped;
    } cases[] = {
        {u'a', false, InputWrapper::withText("a"), false},
        {u'Z', false, InputWrapper::withText("Z"), false},
        {u'7', false, InputWrapper::withText("7"), false},
        {u'#', false, InputWrapper::withKeyCode(18), false},
        {u'\'', false, InputWrapper::withKeyCode(75), false},
        {u'*', false, InputWrapper::withKeyCode(17), false},
        {u'+', false, InputWrapper::withKeyCode(81), false},
        {u',', false, InputWrapper::withKeyCode(55), false},
        {u'-', false, InputWrapper::withKeyCode(69), false},
        {u'.', false, InputWrapper::withKeyCode(56), false},
        {u'/', false, InputWrapper::withKeyCode(76), false},
        {u';', false, InputWrapper::withKeyCode(74), false},
        {u'=', false, InputWrapper::withKeyCode(70), false},
        {u'@', false, InputWrapper::withKeyCode(77), false},
        {u'[', false, InputWrapper::withKeyCode(71), false},
        {u'\\', false, InputWrapper::withKeyCode(73), false},
        {u']', false, InputWrapper::withKeyCode(72), false},
        {0x7f, false, InputWrapper::withKeyCode(67), false},
        {0x7f, true, InputWrapper::withKeyCode(4), false}, // Ctrl+Backspace is back
        {0, false, InputWrapper::withKeyCode(19), false},
        {1, false, InputWrapper::withKeyCode(20), false},
        {2, false, InputWrapper::withKeyCode(21), false},
        {3, false, InputWrapper::withKeyCode(22), false},
        {u'\t', false, InputWrapper::withKeyCode(61), false},
        {u'\n', false, InputWrapper::withKeyCode(66), false},
        {u'\r', false, InputWrapper::withKeyCode(66), false},
        {u' ', false, InputWrapper::withText(" "), true},
        {u'%', false, InputWrapper::withText("%"), true},
        {u'a', true, InputWrapper::withText("a"), false},
        {0x0161, false, InputWrapper::withText("a"), false}, // only the low byte counts: 0x61
        {0xe9, false, InputWrapper::withText(QString(QChar(0xe9))), true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(int(c.c));
        bool unmapped = !c.unmapped;
        EXPECT_EQ(Encoder::inputForCharacter(c.c, c.command, &unmapped), c.expected);
        EXPECT_EQ(unmapped, c.unmapped);
    }
}

TEST(InputCommandEncoder, BuildsEachCommand)
{
    const struct
    {
        QString actual, expected;
    } cases[] = {
        {Encoder::textCommand("a b"), "shell:input text a%sb"},
        {Encoder::textCommand("50%"), "shell:input text 50\\&"},
        {Encoder::textCommand("R&D (x<y>)"), "shell:input text R\\&D%s\\(x\\<y\\>\\)"},
        {Encoder::keyEventCommand({3, 4}), "shell:input keyevent 3 4 "},
        {Encoder::tapCommand({540.4, 1199.6}), "shell:input tap 540 1200"},
        {Encoder::tapCommand({2.5, 3.5}), "shell:input tap 2 4"}, // %.0f: halves to even
        {Encoder::tapCommand({-12.2, 0}), "shell:input tap -12 0"},
        {Encoder::swipeCommand({10.4, 20.6}, {300, 400}), "shell:input swipe 10 21 300 400 100"},
        {Encoder::touchCommand(PointWrapper::tap({1, 2})), "shell:input tap 1 2"},
        {Encoder::touchCommand(PointWrapper::swipe({1, 2}, {3, 4})), "shell:input swipe 1 2 3 4 100"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.actual, c.expected);
}

TEST(InputCommandEncoder, TakesOneBatchPerConnection)
{
    using I = InputWrapper;
    std::deque<InputWrapper> queue = {I::withText("a"),  I::withText("b"), I::withKeyCode(3),
                                      I::withKeyCode(4), I::withText("c"), I::withKeyCode(82)};
    QStringList commands;
    QList<bool> keyWaits;
    for (Encoder::Batch b = Encoder::takeBatch(queue); b.kind != Encoder::Batch::Nothing;
         b = Encoder::takeBatch(queue)) {
        commands.append(b.command);
        keyWaits.append(b.keyWaits);
    }
    EXPECT_EQ(commands, QStringList({"shell:input text ab", "shell:input keyevent 3 4 ", "shell:input text c",
                                     "shell:input keyevent 82 "}));
    EXPECT_EQ(keyWaits, QList<bool>({true, false, true, false}));
    EXPECT_TRUE(queue.empty());
}
