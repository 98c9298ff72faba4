// SPDX-License-Identifier: MIT
#pragma once
// Finding and answering the message boxes and file dialogs a window opens (widget tests only).

#include <QAbstractButton>
#include <QFileDialog>
#include <QMessageBox>
#include <QPointer>
#include <QTest>
#include <gtest/gtest.h>

#include <functional>

namespace dialogs {

template <typename Dialog> Dialog *visible(QWidget *window)
{
    for (Dialog *d : window->findChildren<Dialog *>())
        if (d->isVisible())
            return d;
    return nullptr;
}

template <typename Dialog> Dialog *waitFor(QWidget *window)
{
    Dialog *d = nullptr;
    EXPECT_TRUE(QTest::qWaitFor([&] { return (d = visible<Dialog>(window)) != nullptr; }, 5000))
        << "no " << Dialog::staticMetaObject.className() << " showed";
    return d;
}

// Waits for a message box, clicks the button titled `button` (the first one when empty) and returns
// "text\ninformative text".
inline QString answer(QWidget *window, const QString &button = QString())
{
    QMessageBox *box = waitFor<QMessageBox>(window);
    if (!box)
        return {};
    const QString shown = box->text() + QLatin1Char('\n') + box->informativeText();
    QAbstractButton *chosen = button.isEmpty() ? box->buttons().value(0) : nullptr;
    for (QAbstractButton *b : box->buttons())
        if (b->text() == button)
            chosen = b;
    if (!chosen) {
        ADD_FAILURE() << "no button " << button.toStdString() << " in " << shown.toStdString();
        return shown;
    }
    const QPointer<QMessageBox> answered(box);
    chosen->click();
    // That box goes; the answer may well open the next one.
    EXPECT_TRUE(QTest::qWaitFor([&] { return !answered || !answered->isVisible(); }, 3000));
    return shown;
}

// Waits for a file dialog, lets `prepare` set its extras, chooses `path` and accepts; false when none showed.
inline bool choose(QWidget *window, const QString &path, const std::function<void(QFileDialog *)> &prepare = {})
{
    QFileDialog *dialog = waitFor<QFileDialog>(window);
    if (!dialog)
        return false;
    if (prepare)
        prepare(dialog);
    dialog->selectFile(path);
    static_cast<QDialog *>(dialog)->accept(); // QFileDialog hides accept()
    return true;
}

} // namespace dialogs
