// SPDX-License-Identifier: MIT
#include "Scenes/FilterEditorSheet.h"

#include <QCloseEvent>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

FilterEditorSheet::FilterEditorSheet(QWidget *parent)
    : QDialog(parent)
    , m_name(new QLineEdit(this))
    , m_text(new QPlainTextEdit(this))
    , m_error(new QLabel(this))
{
    setObjectName(QStringLiteral("filterEditorSheet"));
    setWindowTitle(tr("Filter"));
    setWindowModality(Qt::WindowModal);

    m_name->setObjectName(QStringLiteral("filterName"));
    m_name->setPlaceholderText(tr("Filter name"));
    m_text->setObjectName(QStringLiteral("filterText"));
    m_text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_text->setTabChangesFocus(true);
    m_text->setMinimumSize(560, 120);
    m_error->setObjectName(QStringLiteral("filterError"));
    m_error->setStyleSheet(QStringLiteral("color: #c0392b;"));
    m_error->setWordWrap(true);
    m_error->hide();

    auto *hint = new QLabel(tr("Keys: idx time app pid tid type name text note. Operators: == != CONTAINS IN, "
                               "options [c] [d] [cd], joined with AND, OR, NOT."),
                            this);
    hint->setWordWrap(true);
    QFont small = hint->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    hint->setFont(small);

    auto *form = new QFormLayout;
    form->addRow(tr("Name:"), m_name);
    form->addRow(tr("Filter:"), m_text);

    m_apply = new QPushButton(tr("Apply"), this);
    m_cancel = new QPushButton(tr("Cancel"), this);
    m_save = new QPushButton(tr("Save"), this);
    m_save->setDefault(true);
    m_apply->setAutoDefault(false);
    m_cancel->setAutoDefault(false);
    connect(m_apply, &QPushButton::clicked, this, &FilterEditorSheet::applyClicked);
    connect(m_save, &QPushButton::clicked, this, &FilterEditorSheet::saveClicked);
    connect(m_cancel, &QPushButton::clicked, this, &FilterEditorSheet::cancelClicked);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_apply);
    buttons->addStretch(1);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_save);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_error);
    layout->addWidget(hint);
    layout->addLayout(buttons);
}

QString FilterEditorSheet::filterName() const
{
    return m_name->text();
}

void FilterEditorSheet::setFilterName(const QString &name)
{
    m_name->setText(name);
}

QString FilterEditorSheet::filterText() const
{
    return m_text->toPlainText();
}

void FilterEditorSheet::setFilterText(const QString &text)
{
    m_text->setPlainText(text);
}

void FilterEditorSheet::setErrorText(const QString &text)
{
    m_error->setText(text);
    m_error->setVisible(!text.isEmpty());
}

QString FilterEditorSheet::errorText() const
{
    return m_error->text();
}

void FilterEditorSheet::showSheet()
{
    setErrorText({});
    open();
    m_text->setFocus();
}

void FilterEditorSheet::reject()
{
    emit cancelClicked();
}

void FilterEditorSheet::closeEvent(QCloseEvent *event)
{
    event->ignore();
    emit cancelClicked();
}
