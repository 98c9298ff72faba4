// SPDX-License-Identifier: MIT
#include "Scenes/MessageNoteSheet.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

MessageNoteSheet::MessageNoteSheet(QWidget *parent)
    : QDialog(parent)
    , m_messageNote(new QLineEdit(this))
{
    setObjectName(QStringLiteral("messageNoteSheet"));
    setWindowTitle(tr("Add Note"));
    setWindowModality(Qt::WindowModal);

    m_messageNote->setObjectName(QStringLiteral("messageNote"));
    m_messageNote->setMinimumWidth(380);
    m_messageNote->setPlaceholderText(tr("An empty note removes the note"));

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    m_add = buttons->addButton(tr("Add Note"), QDialogButtonBox::AcceptRole);
    m_add->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &MessageNoteSheet::addMessageNote);
    connect(buttons, &QDialogButtonBox::rejected, this, &MessageNoteSheet::onMessageNoteCancel);

    auto *layout = new QVBoxLayout(this);
    m_label = new QLabel(this);
    layout->addWidget(m_label);
    layout->addWidget(m_messageNote);
    layout->addSpacing(8);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    setMultiSelect(false);
}

void MessageNoteSheet::setMultiSelect(bool multi)
{
    m_isMultiSelect = multi;
    setWindowTitle(multi ? tr("Add Note To Selected") : tr("Add Note"));
    m_label->setText(multi ? tr("Note for every selected line:") : tr("Note for this line:"));
}

void MessageNoteSheet::onMessageNoteCancel()
{
    done(0);
}
