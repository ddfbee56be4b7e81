#pragma once

#include "ui/SymbolIcons.h"

#include <QIcon>
#include <QObject>
#include <QString>

#include <memory>

class QMenu;
class QSystemTrayIcon;

// The icon in the desktop's tray: a speaker while the volume keys go to the speaker, a
// speaker with a warning sign while they stay with the desktop, a tooltip saying why, and a
// small menu. Main thread only. Without a tray (GNOME without its AppIndicator extension)
// it keeps its state and shows nothing.
class StatusItem : public QObject {
    Q_OBJECT
public:
    explicit StatusItem(QObject* parent = nullptr);
    ~StatusItem() override;

    // `status` is the tooltip's second line: the reason keys are inactive, or the speaker's
    // level.
    void setState(bool armed, const QString& status);
    // A passing message from the tray (a notification where the desktop shows them).
    void notify(const QString& title, const QString& message);

    bool isArmedLook() const { return m_armed; }
    QString toolTip() const;
    QIcon icon() const;
    QMenu* menu() const { return m_menu.get(); }
    bool isTrayAvailable() const;

signals:
    // The icon itself was clicked (where the panel will open).
    void activated();
    // "Copy Diagnostics" was chosen from the menu.
    void copyDiagnosticsRequested();

private:
    void paint();

    SymbolIcons m_symbols;
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_tray;
    bool m_armed = false;
    bool m_painted = false;
};
