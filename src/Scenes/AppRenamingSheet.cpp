// SPDX-License-Identifier: MIT
#include "Scenes/AppRenamingSheet.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

AppRenamingSheet::AppRenamingSheet(QWidget *parent)
    : QDialog(parent)
    , m_appName(new QLineEdit(this))
    , m_label(new QLabel(this))
{
    setObjectName(QStringLiteral("appRenamingSheet"));
    setWindowTitle(tr("Set App Name"));
    setWindowModality(Qt::WindowModal);

    m_appName->setObjectName(QStringLiteral("appName"));
    m_appName->setMinimumWidth(320);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    m_save = buttons->addButton(tr("Save"), QDialogButtonBox::AcceptRole);
    m_save->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &AppRenamingSheet::appRenameSave);
    connect(buttons, &QDialogButtonBox::rejected, this, &AppRenamingSheet::onAppRenameCancel);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_label);
    layout->addWidget(m_appName);
    layout->addSpacing(8);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

void AppRenamingSheet::setPidToRename(const QString &pid)
{
    m_pidToRename = pid;
    m_label->setText(tr("Application name of process %1:").arg(pid));
}

void AppRenamingSheet::onAppRenameCancel()
{
    done(0);
}
