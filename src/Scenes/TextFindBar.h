// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QLineEdit;
class QPlainTextEdit;

// The find bar under a text area: find (show the bar), next and previous match, case-insensitive plain
// text as the desktop's find bars do. Searching wraps around the end once; a text found nowhere beeps
// and says so. Typing searches at once from the start of the current match, so a longer text keeps it.
// GUI thread only.
class TextFindBar : public QWidget
{
    Q_OBJECT

public:
    explicit TextFindBar(QPlainTextEdit *textView, QWidget *parent = nullptr);
    ~TextFindBar() override;

    // Shows the bar and puts the keyboard focus in its field, the field's text selected.
    void find();
    // The next (previous) match after (before) the selection, wrapping; true when one was selected.
    // With an empty field they only show the bar.
    bool findNext();
    bool findPrevious();
    // Hides the bar and gives the focus back to the text.
    void done();

    QLineEdit *field() const { return m_field; }
    QLabel *statusLabel() const { return m_status; }

private:
    bool search(bool backward, bool fromSelectionStart);

    QPointer<QPlainTextEdit> m_textView;
    QLineEdit *m_field = nullptr;
    QLabel *m_status = nullptr;
};
