// SPDX-License-Identifier: MIT
#include "Scenes/AboutDialog.h"

#include "BuildInfo.h"
#include "Scenes/WindowCommands.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>

AboutDialog::AboutDialog(QWidget *parent)
    : QDialog(parent)
{
    WindowCommands::addCloseShortcut(this);
    setObjectName(QStringLiteral("aboutDialog"));
    setWindowTitle(tr("About Quillfern"));

    auto *icon = new QLabel(this);
    icon->setPixmap(QPixmap(QStringLiteral(":/icons/quillfern-64.png")));
    icon->setAlignment(Qt::AlignHCenter);
    auto *name = new QLabel(QStringLiteral("<b>Quillfern</b>"), this);
    name->setAlignment(Qt::AlignHCenter);
    QFont big = name->font();
    big.setPointSizeF(big.pointSizeF() * 1.4);
    name->setFont(big);
    auto *version = new QLabel(versionText(), this);
    version->setObjectName(QStringLiteral("aboutVersion"));
    version->setAlignment(Qt::AlignHCenter);
    auto *notice = new QLabel(noticeText(), this);
    notice->setObjectName(QStringLiteral("aboutNotice"));
    notice->setAlignment(Qt::AlignHCenter);
    notice->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::accept);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(icon);
    layout->addWidget(name);
    layout->addWidget(version);
    layout->addSpacing(6);
    layout->addWidget(notice);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

QString AboutDialog::versionText()
{
    return QStringLiteral("Version: %1").arg(QStringLiteral(QF_VERSION));
}

QString AboutDialog::noticeText()
{
    return QStringLiteral("%1\n\nGIT: %2\nBuild: %3")
        .arg(tr("A log viewer for Android devices."), QStringLiteral(QF_GIT_REVISION), QStringLiteral(QF_BUILD_DATE));
}
