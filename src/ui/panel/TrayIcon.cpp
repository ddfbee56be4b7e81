#include "ui/panel/TrayIcon.h"

#include "support/Log.h"

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

TrayIcon::TrayIcon(SymbolIcons& symbols, QObject* parent)
    : QObject(parent)
    , m_symbols(symbols)
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
    // The icon is drawn in the palette's text colour: a switch between light and dark
    // redraws it.
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
    const SymbolIcons::Icon icon =
        m_symbols.symbol(m_armed ? QStringLiteral("speaker.wave.3.fill")
                                 : QStringLiteral("speaker.badge.exclamationmark.fill"));
    const QColor ink = QGuiApplication::palette().color(QPalette::WindowText);
    QIcon drawn;
    for (const int size : {16, 22, 24, 32, 48})
        drawn.addPixmap(SymbolIcons::render(icon, QSize(size, size), 1.0, ink));
    m_tray->setIcon(drawn);
}
