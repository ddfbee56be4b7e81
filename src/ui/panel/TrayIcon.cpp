#include "ui/panel/TrayIcon.h"

#include "support/Log.h"
#include "ui/panel/TrayMark.h"

#include <QEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QPalette>
#include <QSystemTrayIcon>

namespace {

const char* yesNo(bool value)
{
    return value ? "true" : "false";
}

} // namespace

TrayIcon::TrayIcon(QObject* parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>())
    , m_tray(new QSystemTrayIcon(this))
{
    m_tray->setToolTip(QStringLiteral("Velotide"));
    m_tray->setContextMenu(m_menu.get());
    connect(m_menu.get(), &QMenu::aboutToShow, this, &TrayIcon::menuAboutToShow);
    connect(m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    emit clicked();
            });
    paint();
    // The mark follows the application's light or dark look: a switch redraws it.
    qApp->installEventFilter(this);
    m_tray->show();
    const QRect frame = m_tray->geometry();
    const QSize size = m_tray->icon().actualSize(QSize(22, 22));
    Log::info(QStringLiteral("status item: image=%1 size=%2x%3 visible=%4 window=%5 frame=%6,%7 "
                             "%8x%9")
                  .arg(yesNo(!m_tray->icon().isNull()))
                  .arg(size.width())
                  .arg(size.height())
                  .arg(yesNo(m_tray->isVisible()))
                  .arg(yesNo(QSystemTrayIcon::isSystemTrayAvailable()))
                  .arg(frame.x())
                  .arg(frame.y())
                  .arg(frame.width())
                  .arg(frame.height()));
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange)
        paint();
    return false;
}

void TrayIcon::setArmedLook(bool armed)
{
    if (armed == m_armed)
        return;
    m_armed = armed;
    paint();
}

void TrayIcon::setToolTip(const QString& text)
{
    if (m_tray->toolTip() != text)
        m_tray->setToolTip(text);
}

QString TrayIcon::toolTip() const
{
    return m_tray->toolTip();
}

QRect TrayIcon::geometry() const
{
    return m_tray->geometry();
}

bool TrayIcon::isTrayAvailable()
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::paint()
{
    const QPalette palette = QGuiApplication::palette();
    const bool dark = palette.color(QPalette::Window).lightness() <
                      palette.color(QPalette::WindowText).lightness();
    m_tray->setIcon(TrayMark::icon(m_armed, dark));
}
