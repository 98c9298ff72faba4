// SPDX-License-Identifier: MIT
#pragma once

#include "Presentation/LogAppearance.h"
#include "Scenes/ZWPrefsWindowController.h"

#include <array>

class QCheckBox;
class QFileDialog;
class QLabel;
class QLineEdit;
class QPushButton;

// The preferences window: "General" (ADB server, port, clearing the device log on connect, the usage
// statistics server) and
// "Appearance" (colour and bold flag of each log level). Every edit is written to the settings store
// at once; colour and bold edits also emit fontsChanged() so the log table reads them again.
class QuillfernPreferences : public ZWPrefsWindowController
{
    Q_OBJECT

public:
    explicit QuillfernPreferences(QWidget *parent = nullptr);
    ~QuillfernPreferences() override;

    // The one instance, created on first use as a window owned by `owner` (deleted with it).
    static QuillfernPreferences *sharedPrefsWindowController(QWidget *owner = nullptr);

    QWidget *generalView() const { return m_generalView; }
    QWidget *appearanceView() const { return m_appearanceView; }
    QLineEdit *adbServer() const { return m_adbServer; }
    QLineEdit *adbPort() const { return m_adbPort; }
    QCheckBox *clearLogOnConnect() const { return m_clearLogOnConnect; }
    QLineEdit *analyticsServer() const { return m_analyticsServer; }
    QPushButton *browseButton() const { return m_browseButton; }
    QPushButton *colorWell(LogAppearance::Level level) const { return m_colorWells[level]; }
    QCheckBox *boldCheckBox(LogAppearance::Level level) const { return m_boldBoxes[level]; }
    QPushButton *restoreDefaultsButton() const { return m_restoreDefaults; }

    // What a colour well's dialog calls on OK: stores the colour and announces the change.
    void setLevelColor(LogAppearance::Level level, const QColor &color);
    // Removes the six bold and six colour settings so the defaults apply again, then announces it.
    void restoreDefaultFontColors();
    // Opens the file panel for the adb tool, starting in the home folder. The choice is not used.
    QFileDialog *browseForADB();
    // Fills every control from the settings store.
    void loadSettings();

signals:
    // A colour or bold flag changed: read the settings again and repaint the log.
    void fontsChanged();

protected:
    void setupToolbar() override;
    void showEvent(QShowEvent *event) override;

private:
    QWidget *createGeneralView();
    QWidget *createAppearanceView();
    void fontChanged();
    void chooseColor(LogAppearance::Level level);
    QColor effectiveColor(LogAppearance::Level level) const;
    void updateLevelPreview(LogAppearance::Level level);

    QWidget *m_generalView = nullptr;
    QWidget *m_appearanceView = nullptr;
    QLineEdit *m_adbServer = nullptr;
    QLineEdit *m_adbPort = nullptr;
    QCheckBox *m_clearLogOnConnect = nullptr;
    QLineEdit *m_analyticsServer = nullptr;
    QPushButton *m_browseButton = nullptr;
    std::array<QPushButton *, LogAppearance::LevelCount> m_colorWells{};
    std::array<QCheckBox *, LogAppearance::LevelCount> m_boldBoxes{};
    std::array<QLabel *, LogAppearance::LevelCount> m_previews{};
    QPushButton *m_restoreDefaults = nullptr;
    bool m_loading = false;
};
