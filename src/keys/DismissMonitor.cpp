#include "keys/DismissMonitor.h"

#include "keys/EventTap.h"
#include "keys/x11/X11ClickWatch.h"

#include <QCursor>
#include <QGuiApplication>

namespace {

// qGuiApp is only a cast: a plain QCoreApplication has no platform plugin.
bool hasGui()
{
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

bool sessionRunsOnX11()
{
    if (hasGui())
        return QGuiApplication::platformName() == QLatin1String("xcb");
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}

} // namespace

DismissMonitor::DismissMonitor(QObject* parent)
    : QObject(parent)
{
}

DismissMonitor::~DismissMonitor()
{
    stop();
}

void DismissMonitor::setKeyServiceTap(EventTap* tap)
{
    const bool wasRunning = isRunning();
    stop();
    m_tap = tap;
    if (wasRunning)
        start();
}

void DismissMonitor::start()
{
    if (isRunning())
        return;
    if (sessionRunsOnX11()) {
        m_x11 = X11ClickWatch::start([this](QPoint position) { emit clicked(position); });
        if (m_x11)
            return;
    }
    if (m_tap) {
        m_viaTap = m_tap->setPointerButtonHandler(
            [this] { emit clicked(hasGui() ? QCursor::pos() : QPoint()); });
    }
}

void DismissMonitor::stop()
{
    m_x11.reset();
    if (m_viaTap && m_tap)
        m_tap->setPointerButtonHandler(nullptr);
    m_viaTap = false;
}

bool DismissMonitor::isRunning() const
{
    return m_x11 != nullptr || m_viaTap;
}
