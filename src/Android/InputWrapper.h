// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

// One pending keyboard input of TypeWriter: a piece of text or a device key code.
struct InputWrapper
{
    std::optional<QString> text; // set for text inputs
    qint64 keyCode = 0; // the Android key code; 0 for text

    bool isText() const { return text.has_value(); }

    static InputWrapper withText(const QString &text) { return {text, 0}; }
    static InputWrapper withKeyCode(qint64 keyCode) { return {std::nullopt, keyCode}; }

    friend bool operator==(const InputWrapper &, const InputWrapper &) = default;
};
