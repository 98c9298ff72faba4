// SPDX-License-Identifier: MIT
#include "Scenes/PreferencesWindow.h"

#include "Helpers/Logger.h"
#include "Helpers/Settings.h"
#include "Scenes/WindowCommands.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QConicalGradient>
#include <QDir>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace {

const std::array<const char *, LogAppearance::LevelCount> LevelNames = {"Verbose", "Debug", "Info",
                                                                        "Warning", "Error", "Fatal"};

// The theme's icon when it has one; otherwise one painted on a 56-pixel canvas by `paint`, since the
// toolkit has no vector image support.
template <typename Paint> QIcon themedOrPainted(const QString &themeName, Paint paint)
{
    QIcon themed = QIcon::fromTheme(themeName);
    if (!themed.isNull())
        return themed;
    QPixmap pixmap(56, 56);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(painter);
    return QIcon(pixmap);
}

QIcon colorPrefsIcon()
{
    return themedOrPainted(QStringLiteral("preferences-desktop-color"), [](QPainter &painter) {
        // A small colour wheel.
        QConicalGradient gradient(28, 28, 90);
        for (int i = 0; i <= 6; ++i)
            gradient.setColorAt(i / 6.0, QColor::fromHsv((i * 60) % 360, 220, 245));
        painter.setBrush(gradient);
        painter.setPen(QPen(QColor(90, 90, 90), 1.5));
        painter.drawEllipse(QRectF(4, 4, 48, 48));
    });
}

QIcon generalPrefsIcon()
{
    return themedOrPainted(QStringLiteral("preferences-system"), [](QPainter &painter) {
        // A gear.
        painter.translate(28, 28);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(120, 124, 130));
        for (int tooth = 0; tooth < 8; ++tooth) {
            painter.drawRoundedRect(QRectF(-5, -25, 10, 12), 2, 2);
            painter.rotate(45);
        }
        painter.drawEllipse(QPointF(0, 0), 17, 17);
        painter.setBrush(QColor(235, 235, 235));
        painter.drawEllipse(QPointF(0, 0), 7, 7);
    });
}

QIcon swatchIcon(const QColor &color)
{
    QPixmap pixmap(40, 16);
    pixmap.fill(color);
    QPainter painter(&pixmap);
    painter.setPen(QColor(0, 0, 0, 110));
    painter.drawRect(pixmap.rect().adjusted(0, 0, -1, -1));
    return QIcon(pixmap);
}

} // namespace

QuillfernPreferences::QuillfernPreferences(QWidget *parent)
    : ZWPrefsWindowController(parent)
{
    setObjectName(QStringLiteral("preferencesWindow"));
    WindowCommands::addCloseShortcut(this);
    m_generalView = createGeneralView();
    m_appearanceView = createAppearanceView();
    loadSettings();
}

QuillfernPreferences::~QuillfernPreferences() = default;

QuillfernPreferences *QuillfernPreferences::sharedPrefsWindowController(QWidget *owner)
{
    static QPointer<QuillfernPreferences> shared;
    if (!shared)
        shared = new QuillfernPreferences(owner);
    return shared;
}

void QuillfernPreferences::setupToolbar()
{
    addView(m_generalView, QStringLiteral("General"), generalPrefsIcon());
    addView(m_appearanceView, QStringLiteral("Appearance"), colorPrefsIcon());
}

void QuillfernPreferences::showEvent(QShowEvent *event)
{
    loadSettings();
    ZWPrefsWindowController::showEvent(event);
}

QWidget *QuillfernPreferences::createGeneralView()
{
    auto *view = new QWidget(this);
    view->setObjectName(QStringLiteral("generalView"));
    auto *form = new QFormLayout(view);
    form->setContentsMargins(20, 18, 20, 18);
    form->setHorizontalSpacing(10);
    form->setVerticalSpacing(10);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);

    m_adbServer = new QLineEdit(view);
    m_adbServer->setObjectName(QStringLiteral("adbServer"));
    m_adbServer->setPlaceholderText(Settings::defaultValue(SettingsKey::adbServer).toString());
    m_adbServer->setMinimumWidth(220);
    connect(m_adbServer, &QLineEdit::textEdited, this,
            [](const QString &text) { Settings::setValue(SettingsKey::adbServer, text); });

    m_adbPort = new QLineEdit(view);
    m_adbPort->setObjectName(QStringLiteral("adbPort"));
    m_adbPort->setPlaceholderText(Settings::defaultValue(SettingsKey::adbPort).toString());
    m_adbPort->setValidator(new QIntValidator(1, 65535, m_adbPort));
    m_adbPort->setMaximumWidth(90);
    connect(m_adbPort, &QLineEdit::textEdited, this,
            [](const QString &text) { Settings::setValue(SettingsKey::adbPort, text); });

    m_browseButton = new QPushButton(tr("Browse…"), view);
    m_browseButton->setObjectName(QStringLiteral("browseForADB"));
    m_browseButton->setAutoDefault(false);
    connect(m_browseButton, &QPushButton::clicked, this, [this] { browseForADB(); });

    m_clearLogOnConnect = new QCheckBox(tr("Clear the device log when connecting"), view);
    m_clearLogOnConnect->setObjectName(QStringLiteral("clearLogOnConnect"));
    connect(m_clearLogOnConnect, &QCheckBox::toggled, this, [this](bool on) {
        if (!m_loading)
            Settings::setValue(SettingsKey::clearLogOnStart, on);
    });

    auto *hint = new QLabel(tr("Server and port apply from the next connection."), view);
    hint->setEnabled(false);

    form->addRow(tr("ADB server:"), m_adbServer);
    form->addRow(tr("Port:"), m_adbPort);
    form->addRow(tr("ADB tool:"), m_browseButton);
    form->addRow(QString(), m_clearLogOnConnect);
    form->addRow(QString(), hint);

    // Written when the edit is done, not per keystroke: each new address starts a session there.
    m_analyticsServer = new QLineEdit(view);
    m_analyticsServer->setObjectName(QStringLiteral("analyticsServer"));
    m_analyticsServer->setPlaceholderText(tr("https://stats.example.org"));
    m_analyticsServer->setMinimumWidth(220);
    connect(m_analyticsServer, &QLineEdit::editingFinished, this, [this] {
        if (m_analyticsServer->text().trimmed() != Settings::analyticsServer())
            Settings::setValue(SettingsKey::analyticsServer, m_analyticsServer->text().trimmed());
    });
    auto *statsHint = new QLabel(tr("Empty: no usage statistics or crash reports are sent."), view);
    statsHint->setEnabled(false);
    form->addRow(tr("Usage statistics server:"), m_analyticsServer);
    form->addRow(QString(), statsHint);
    return view;
}

QWidget *QuillfernPreferences::createAppearanceView()
{
    auto *view = new QWidget(this);
    view->setObjectName(QStringLiteral("appearanceView"));
    auto *outer = new QVBoxLayout(view);
    outer->setContentsMargins(20, 18, 20, 18);
    outer->setSpacing(14);

    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(18);
    grid->setVerticalSpacing(8);
    auto *levelHeader = new QLabel(tr("Level"), view);
    auto *colorHeader = new QLabel(tr("Colour"), view);
    auto *boldHeader = new QLabel(tr("Bold"), view);
    for (QLabel *header : {levelHeader, colorHeader, boldHeader}) {
        QFont font = header->font();
        font.setBold(true);
        header->setFont(font);
    }
    grid->addWidget(levelHeader, 0, 0);
    grid->addWidget(colorHeader, 0, 1, Qt::AlignHCenter);
    grid->addWidget(boldHeader, 0, 2, Qt::AlignHCenter);

    for (int i = 0; i < LogAppearance::LevelCount; ++i) {
        const auto level = LogAppearance::Level(i);
        auto *preview = new QLabel(view);
        preview->setObjectName(QStringLiteral("preview%1").arg(QString::fromLatin1(LevelNames[i])));
        preview->setText(QStringLiteral("%1  %2").arg(LogAppearance::levelLetter(level),
                                                      QString::fromLatin1(LevelNames[i])));
        preview->setMinimumWidth(140);
        m_previews[i] = preview;

        auto *well = new QPushButton(view);
        well->setObjectName(LogAppearance::colorKey(level));
        well->setIconSize(QSize(40, 16));
        well->setAutoDefault(false);
        well->setToolTip(tr("Text colour of %1 lines").arg(QString::fromLatin1(LevelNames[i]).toLower()));
        connect(well, &QPushButton::clicked, this, [this, level] { chooseColor(level); });
        m_colorWells[i] = well;

        auto *bold = new QCheckBox(view);
        bold->setObjectName(LogAppearance::boldKey(level));
        bold->setToolTip(tr("Show %1 lines in bold").arg(QString::fromLatin1(LevelNames[i]).toLower()));
        connect(bold, &QCheckBox::toggled, this, [this, level](bool on) {
            if (m_loading)
                return;
            Settings::setValue(LogAppearance::boldKey(level), on);
            updateLevelPreview(level);
            fontChanged();
        });
        m_boldBoxes[i] = bold;

        grid->addWidget(preview, i + 1, 0);
        grid->addWidget(well, i + 1, 1, Qt::AlignHCenter);
        grid->addWidget(bold, i + 1, 2, Qt::AlignHCenter);
    }
    outer->addLayout(grid);

    m_restoreDefaults = new QPushButton(tr("Restore Defaults"), view);
    m_restoreDefaults->setObjectName(QStringLiteral("restoreDefaultFontColors"));
    m_restoreDefaults->setAutoDefault(false);
    connect(m_restoreDefaults, &QPushButton::clicked, this, &QuillfernPreferences::restoreDefaultFontColors);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_restoreDefaults);
    outer->addLayout(buttons);
    return view;
}

QColor QuillfernPreferences::effectiveColor(LogAppearance::Level level) const
{
    const QColor stored = LogAppearance::colorFromText(Settings::value(LogAppearance::colorKey(level)).toString());
    return stored.isValid() ? stored : palette().color(QPalette::Text);
}

void QuillfernPreferences::updateLevelPreview(LogAppearance::Level level)
{
    const QColor color = effectiveColor(level);
    m_colorWells[level]->setIcon(swatchIcon(color));
    QLabel *preview = m_previews[level];
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setBold(Settings::value(LogAppearance::boldKey(level)).toBool());
    preview->setFont(font);
    QPalette palette = preview->palette();
    palette.setColor(QPalette::WindowText, color);
    preview->setPalette(palette);
}

void QuillfernPreferences::loadSettings()
{
    m_loading = true;
    m_adbServer->setText(Settings::adbServer());
    m_adbPort->setText(Settings::adbPort());
    m_clearLogOnConnect->setChecked(Settings::clearLogOnStart());
    m_analyticsServer->setText(Settings::analyticsServer());
    for (int i = 0; i < LogAppearance::LevelCount; ++i) {
        const auto level = LogAppearance::Level(i);
        m_boldBoxes[i]->setChecked(Settings::value(LogAppearance::boldKey(level)).toBool());
        updateLevelPreview(level);
    }
    m_loading = false;
}

void QuillfernPreferences::chooseColor(LogAppearance::Level level)
{
    auto *dialog = new QColorDialog(effectiveColor(level), this);
    dialog->setObjectName(QStringLiteral("colorDialog"));
    dialog->setOption(QColorDialog::DontUseNativeDialog);
    dialog->setWindowTitle(tr("%1 Colour").arg(QString::fromLatin1(LevelNames[level])));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    connect(dialog, &QColorDialog::colorSelected, this,
            [this, level](const QColor &color) { setLevelColor(level, color); });
    dialog->open();
}

void QuillfernPreferences::setLevelColor(LogAppearance::Level level, const QColor &color)
{
    if (!color.isValid())
        return;
    Settings::setValue(LogAppearance::colorKey(level), LogAppearance::colorToText(color));
    updateLevelPreview(level);
    fontChanged();
}

void QuillfernPreferences::restoreDefaultFontColors()
{
    const QStringList keys = Settings::boldKeys() + Settings::colorKeys();
    for (const QString &key : keys)
        Settings::remove(key);
    QF_LOG(QStringLiteral("restored default colours and fonts"));
    loadSettings();
    emit fontsChanged();
}

void QuillfernPreferences::fontChanged()
{
    if (!m_loading)
        emit fontsChanged();
}

QFileDialog *QuillfernPreferences::browseForADB()
{
    auto *panel = new QFileDialog(this, tr("Locate adb"), QDir::homePath());
    panel->setObjectName(QStringLiteral("browseForADBPanel"));
    panel->setOption(QFileDialog::DontUseNativeDialog);
    panel->setFileMode(QFileDialog::ExistingFile);
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setWindowModality(Qt::WindowModal);
    // The chosen file is deliberately not used: adb is found on the PATH and in the usual places.
    panel->open();
    return panel;
}
