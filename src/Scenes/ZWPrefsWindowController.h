// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QIcon>
#include <QPointer>
#include <QStringList>
#include <QWidget>

class QAbstractAnimation;
class QAction;
class QActionGroup;
class QParallelAnimationGroup;
class QToolBar;

// A window with a toolbar of panes that cross-fades between them and resizes itself to the pane.
// Subclasses add their panes in setupToolbar().
class ZWPrefsWindowController : public QWidget
{
    Q_OBJECT

public:
    explicit ZWPrefsWindowController(QWidget *parent = nullptr);
    ~ZWPrefsWindowController() override;

    static constexpr int CrossFadeMs = 250;
    static constexpr int SlowCrossFadeMs = 1250;
    // 0.25 s, or 1.25 s when slowing is allowed and Shift is held.
    static int crossFadeDurationMs(bool shiftSlowsAnimation, Qt::KeyboardModifiers modifiers);

    // The pane's identifier is its label. Without an image the icon is looked up by the label.
    void addView(QWidget *view, const QString &label);
    void addView(QWidget *view, const QString &label, const QIcon &image);

    // Rebuilds the panes (setupToolbar), shows the first one without animation, centres and shows the window.
    void showWindow();

    // Shows a pane, cross-fading when `animate` and crossFade are set.
    void displayViewForIdentifier(const QString &identifier, bool animate);
    // The window geometry that fits `view`: its width, and the window's height less the content height
    // plus the view's height; the top edge stays.
    QRect frameForView(QWidget *view) const;

    QStringList toolbarIdentifiers() const { return m_toolbarIdentifiers; }
    QString currentIdentifier() const { return m_currentIdentifier; }
    QWidget *viewForIdentifier(const QString &identifier) const { return m_toolbarViews.value(identifier); }
    QAction *toolbarItem(const QString &identifier) const { return m_toolbarItems.value(identifier); }
    QToolBar *toolbar() const { return m_toolbar; }
    bool isAnimating() const;

    bool crossFade() const { return m_crossFade; }
    void setCrossFade(bool on) { m_crossFade = on; }
    bool shiftSlowsAnimation() const { return m_shiftSlowsAnimation; }
    void setShiftSlowsAnimation(bool on) { m_shiftSlowsAnimation = on; }
    // Duration of the last cross-fade started, in milliseconds (0 before any).
    int lastAnimationDurationMs() const { return m_lastDurationMs; }

signals:
    void paneShown(const QString &identifier);

protected:
    virtual void setupToolbar() {}

private:
    void toggleActivePreferenceView(QAction *item);
    void crossFadeView(QWidget *oldView, QWidget *newView);
    void animationDidEnd();
    void clearPanes();

    QStringList m_toolbarIdentifiers;
    QHash<QString, QPointer<QWidget>> m_toolbarViews;
    QHash<QString, QAction *> m_toolbarItems;
    QToolBar *m_toolbar = nullptr;
    QActionGroup *m_itemGroup = nullptr;
    QWidget *m_contentSubview = nullptr;
    QPointer<QParallelAnimationGroup> m_viewAnimation;
    QPointer<QWidget> m_fadingOut;
    QString m_currentIdentifier;
    bool m_crossFade = true;
    bool m_shiftSlowsAnimation = true;
    int m_lastDurationMs = 0;
};
