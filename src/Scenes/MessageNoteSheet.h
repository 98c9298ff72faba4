// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

// The sheet that asks for a note for one log line or for every selected one. Shown window-modal with
// open(); the controller decides what the confirmation does and ends the sheet with code 1.
class MessageNoteSheet : public QDialog
{
    Q_OBJECT

public:
    explicit MessageNoteSheet(QWidget *parent = nullptr);

    QLineEdit *messageNote() const { return m_messageNote; }
    // True when the note goes to every selected line, false for the right-clicked one.
    bool isMultiSelect() const { return m_isMultiSelect; }
    void setMultiSelect(bool multi);

    // The cancel button (and Escape): ends the sheet with code 0.
    void onMessageNoteCancel();
    void reject() override { onMessageNoteCancel(); }

    QPushButton *addButton() const { return m_add; }

signals:
    // The confirm button (and Return).
    void addMessageNote();

private:
    QLineEdit *m_messageNote = nullptr;
    QLabel *m_label = nullptr;
    QPushButton *m_add = nullptr;
    bool m_isMultiSelect = false;
};
