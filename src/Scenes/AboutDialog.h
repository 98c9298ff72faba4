// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

// The About panel: name, "Version: <version>", and the notice with the git revision and build date.
class AboutDialog : public QDialog
{
    Q_OBJECT

public:
    explicit AboutDialog(QWidget *parent = nullptr);

    static QString versionText();
    static QString noticeText();
};
