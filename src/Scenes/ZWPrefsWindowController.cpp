// SPDX-License-Identifier: MIT
#include "Scenes/ZWPrefsWindowController.h"

#include "Helpers/Logger.h"

#include <QAction>
#include <QActionGroup>
#include <QGraphicsOpacityEffect>
#include <QGuiApplication>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QScreen>
#include <QToolBar>
#include <QVBoxLayout>

ZWPrefsWindowController::ZWPrefsWindowController(QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_contentSubview = new QWidget(this);
    m_contentSubview->setObjectName(QStringLiteral("contentSubview"));
    layout->addWidget(m_contentSubview, 1);
    m_itemGroup = new QActionGroup(this);
    m_itemGroup->setExclusive(true);
}

ZWPrefsWindowController::~ZWPrefsWindowController()
{
    if (m_viewAnimation)
        m_viewAnimation->stop();
}

int ZWPrefsWindowController::crossFadeDurationMs(bool shiftSlowsAnimation, Qt::KeyboardModifiers modifiers)
{
    return shiftSlowsAnimation && (modifiers & Qt::ShiftModifier) ? SlowCrossFadeMs : CrossFadeMs;
}

void ZWPrefsWindowController::addView(QWidget *view, const QString &label)
{
    const QString name = label.toLower();
    QIcon icon = QIcon::fromTheme(name);
    if (icon.isNull())
        icon = QIcon(QStringLiteral(":/icons/%1.png").arg(name));
    addView(view, label, icon);
}

void ZWPrefsWindowController::addView(QWidget *view, const QString &label, const QIcon &image)
{
    if (!view) {
        QF_LOG_ERROR(QStringLiteral("Attempted to add a nil view when calling -addView:label:image:."));
        return;
    }
    m_toolbarIdentifiers.append(label);
    m_toolbarViews.insert(label, view);
    view->setParent(m_contentSubview);
    view->hide();
    view->adjustSize();

    auto *item = new QAction(image, label, this);
    item->setCheckable(true);
    item->setObjectName(label);
    m_itemGroup->addAction(item);
    connect(item, &QAction::triggered, this, [this, item] { toggleActivePreferenceView(item); });
    m_toolbarItems.insert(label, item);
}

void ZWPrefsWindowController::clearPanes()
{
    for (QAction *item : std::as_const(m_toolbarItems)) {
        m_itemGroup->removeAction(item);
        delete item;
    }
    m_toolbarItems.clear();
    m_toolbarIdentifiers.clear();
    m_toolbarViews.clear();
    m_currentIdentifier.clear();
}

void ZWPrefsWindowController::showWindow()
{
    if (m_viewAnimation) {
        m_viewAnimation->stop();
        animationDidEnd();
    }
    clearPanes();
    setupToolbar();
    if (m_toolbarIdentifiers.isEmpty()) {
        QF_LOG_ERROR(QStringLiteral("No items were added to the toolbar in -setupToolbar."));
        return;
    }

    if (!m_toolbar) {
        m_toolbar = new QToolBar(this);
        m_toolbar->setObjectName(QStringLiteral("ZWPreferencesToolbar"));
        m_toolbar->setMovable(false);
        m_toolbar->setFloatable(false);
        m_toolbar->setContextMenuPolicy(Qt::PreventContextMenu);
        m_toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        m_toolbar->setIconSize(QSize(28, 28));
        static_cast<QVBoxLayout *>(layout())->insertWidget(0, m_toolbar);
    }
    m_toolbar->clear();
    for (const QString &identifier : std::as_const(m_toolbarIdentifiers))
        m_toolbar->addAction(m_toolbarItems.value(identifier));

    // Hide whatever pane was shown before so the first one is shown afresh.
    for (QWidget *child : m_contentSubview->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
        child->hide();
    displayViewForIdentifier(m_toolbarIdentifiers.first(), false);

    if (const QScreen *screen = this->screen()) {
        QRect frame = geometry();
        frame.moveCenter(screen->availableGeometry().center());
        move(frame.topLeft());
    }
    show();
    raise();
    activateWindow();
}

void ZWPrefsWindowController::toggleActivePreferenceView(QAction *item)
{
    displayViewForIdentifier(m_toolbarItems.key(item), true);
}

bool ZWPrefsWindowController::isAnimating() const
{
    return m_viewAnimation && m_viewAnimation->state() == QAbstractAnimation::Running;
}

QRect ZWPrefsWindowController::frameForView(QWidget *view) const
{
    if (layout())
        layout()->activate();
    const QRect window = geometry();
    const int chrome = window.height() - m_contentSubview->height();
    return QRect(window.left(), window.top(), view->width(), chrome + view->height());
}

void ZWPrefsWindowController::displayViewForIdentifier(const QString &identifier, bool animate)
{
    QWidget *newView = m_toolbarViews.value(identifier);
    if (!newView || identifier == m_currentIdentifier)
        return;

    if (m_viewAnimation) {
        m_viewAnimation->stop(); // a stopped animation does not report its end
        animationDidEnd();
    }
    QWidget *oldView = m_toolbarViews.value(m_currentIdentifier);
    for (QWidget *child : m_contentSubview->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        if (child != oldView && child != newView)
            child->hide();
    }

    newView->move(0, 0);
    newView->show();
    newView->raise();
    // The pane's first control gets the keyboard focus.
    for (QWidget *child : newView->findChildren<QWidget *>()) {
        if ((child->focusPolicy() & Qt::TabFocus) && child->isEnabled()) {
            child->setFocus(Qt::OtherFocusReason);
            break;
        }
    }

    m_currentIdentifier = identifier;
    if (QAction *item = m_toolbarItems.value(identifier))
        item->setChecked(true);
    setWindowTitle(identifier);

    if (animate && m_crossFade && oldView && oldView->isVisible()) {
        crossFadeView(oldView, newView);
    } else {
        if (oldView)
            oldView->hide();
        setGeometry(frameForView(newView));
    }
    emit paneShown(identifier);
}

void ZWPrefsWindowController::crossFadeView(QWidget *oldView, QWidget *newView)
{
    m_lastDurationMs = crossFadeDurationMs(m_shiftSlowsAnimation, QGuiApplication::keyboardModifiers());
    const QEasingCurve curve(QEasingCurve::InOutQuad);

    auto *group = new QParallelAnimationGroup(this);
    const auto fade = [&](QWidget *view, qreal from, qreal to) {
        auto *effect = new QGraphicsOpacityEffect(view);
        effect->setOpacity(from);
        view->setGraphicsEffect(effect);
        auto *animation = new QPropertyAnimation(effect, "opacity", group);
        animation->setStartValue(from);
        animation->setEndValue(to);
        animation->setDuration(m_lastDurationMs);
        animation->setEasingCurve(curve);
        group->addAnimation(animation);
    };
    fade(oldView, 1.0, 0.0);
    fade(newView, 0.0, 1.0);

    auto *resize = new QPropertyAnimation(this, "geometry", group);
    resize->setStartValue(geometry());
    resize->setEndValue(frameForView(newView));
    resize->setDuration(m_lastDurationMs);
    resize->setEasingCurve(curve);
    group->addAnimation(resize);

    m_fadingOut = oldView;
    m_viewAnimation = group;
    connect(group, &QAbstractAnimation::finished, this, &ZWPrefsWindowController::animationDidEnd);
    group->start(QAbstractAnimation::DeleteWhenStopped);
}

void ZWPrefsWindowController::animationDidEnd()
{
    if (m_fadingOut) {
        m_fadingOut->hide();
        m_fadingOut->setGraphicsEffect(nullptr);
    }
    m_fadingOut.clear();
    if (QWidget *current = m_toolbarViews.value(m_currentIdentifier))
        current->setGraphicsEffect(nullptr);
}
