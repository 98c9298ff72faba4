// SPDX-License-Identifier: MIT
#include "Scenes/TextFindBar.h"

#include <QAction>
#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QToolButton>

TextFindBar::TextFindBar(QPlainTextEdit *textView, QWidget *parent) : QWidget(parent), m_textView(textView)
{
    setObjectName(QStringLiteral("findBar"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 4);
    layout->setSpacing(4);

    m_field = new QLineEdit(this);
    m_field->setObjectName(QStringLiteral("findField"));
    m_field->setPlaceholderText(tr("Find"));
    m_field->setClearButtonEnabled(true);
    m_field->setMinimumWidth(240);
    m_field->setMaximumWidth(360);

    auto button = [this](const QString &text, const QString &toolTip) {
        auto *b = new QToolButton(this);
        b->setText(text);
        b->setToolTip(toolTip);
        b->setAutoRaise(true);
        return b;
    };
    QToolButton *previous = button(tr("Previous"), tr("Find Previous (Shift+F3)"));
    QToolButton *next = button(tr("Next"), tr("Find Next (F3)"));
    auto *doneButton = new QToolButton(this);
    doneButton->setText(tr("Done"));
    doneButton->setAutoRaise(true);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("findStatus"));

    layout->addWidget(m_field);
    layout->addWidget(previous);
    layout->addWidget(next);
    layout->addWidget(m_status, 1);
    layout->addWidget(doneButton);

    connect(previous, &QToolButton::clicked, this, &TextFindBar::findPrevious);
    connect(next, &QToolButton::clicked, this, &TextFindBar::findNext);
    connect(doneButton, &QToolButton::clicked, this, &TextFindBar::done);
    connect(m_field, &QLineEdit::textEdited, this, [this] { search(false, true); });
    connect(m_field, &QLineEdit::returnPressed, this, [this] {
        if (QApplication::keyboardModifiers() & Qt::ShiftModifier)
            findPrevious();
        else
            findNext();
    });
    auto *escape = new QAction(this);
    escape->setShortcut(QKeySequence(Qt::Key_Escape));
    escape->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(escape, &QAction::triggered, this, &TextFindBar::done);
    addAction(escape);
    hide();
}

TextFindBar::~TextFindBar() = default;

void TextFindBar::find()
{
    show();
    m_field->setFocus(Qt::ShortcutFocusReason);
    m_field->selectAll();
}

bool TextFindBar::findNext()
{
    return search(false, false);
}

bool TextFindBar::findPrevious()
{
    return search(true, false);
}

void TextFindBar::done()
{
    hide();
    m_status->clear();
    if (m_textView)
        m_textView->setFocus(Qt::OtherFocusReason);
}

bool TextFindBar::search(bool backward, bool fromSelectionStart)
{
    const QString needle = m_field->text();
    if (!m_textView || needle.isEmpty()) {
        m_status->clear();
        if (!fromSelectionStart)
            find();
        return false;
    }
    QTextCursor start = m_textView->textCursor();
    if (fromSelectionStart)
        start.setPosition(start.selectionStart());
    const QTextDocument::FindFlags flags = backward ? QTextDocument::FindBackward : QTextDocument::FindFlags();
    QTextDocument *document = m_textView->document();
    QTextCursor found = document->find(needle, start, flags);
    bool wrapped = false;
    if (found.isNull()) {
        QTextCursor edge(document);
        edge.movePosition(backward ? QTextCursor::End : QTextCursor::Start);
        found = document->find(needle, edge, flags);
        wrapped = !found.isNull();
    }
    if (found.isNull()) {
        m_status->setText(tr("Not found"));
        QApplication::beep();
        return false;
    }
    m_status->setText(wrapped ? tr("Wrapped around") : QString());
    m_textView->setTextCursor(found);
    m_textView->ensureCursorVisible();
    return true;
}
