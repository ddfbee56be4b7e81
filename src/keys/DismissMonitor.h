#pragma once

#include <QObject>
#include <QPoint>

#include <memory>

class EventTap;
class X11ClickWatch;

// Reports every pointer button press anywhere on screen, in other programs and in this one,
// with the pointer's screen position, while started; used to dismiss the overlay and the
// panel. Keys and pointer motion are never reported. Main thread only.
//
// On X11 (XWayland included) the presses come from the X server; elsewhere from the key
// service, through the tap's connection to it, with the last known pointer position.
class DismissMonitor : public QObject {
    Q_OBJECT
public:
    explicit DismissMonitor(QObject* parent = nullptr);
    ~DismissMonitor() override;

    // The tap whose key service reports pointer buttons where there is no X server. The tap
    // must outlive this monitor, or be unset (nullptr) before it goes.
    void setKeyServiceTap(EventTap* tap);
    // Starts reporting; does nothing when already started.
    void start();
    // Stops reporting.
    void stop();
    // Whether presses are being reported now (start() can find no source at all).
    bool isRunning() const;

signals:
    void clicked(QPoint screenPosition);

private:
    EventTap* m_tap = nullptr;
    std::unique_ptr<X11ClickWatch> m_x11;
    bool m_viaTap = false;
};
