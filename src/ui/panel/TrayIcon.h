#pragma once

#include <QObject>
#include <QRect>

#include <memory>

class QMenu;
class QSystemTrayIcon;

// The icon in the desktop's tray. A left click asks for the panel; the right-click menu is
// filled by whoever owns the icon, just before it opens. No balloon messages: the panel and
// the overlay say everything. Main thread only.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    explicit TrayIcon(QObject* parent = nullptr);
    ~TrayIcon() override;

    // Armed: keys go to the speaker. Otherwise the icon shows that they stay with the desktop.
    void setArmedLook(bool armed);
    void setToolTip(const QString& text);
    QString toolTip() const;
    // Where the tray draws the icon on screen; empty where the tray does not say.
    QRect geometry() const;
    QMenu& menu() { return *m_menu; }
    static bool isTrayAvailable();

signals:
    void clicked();
    void menuAboutToShow();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void paint();

    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon* m_tray;
    bool m_armed = true;
};
