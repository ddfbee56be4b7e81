#include "app/StatusItem.h"

#include "support/UiText.h"

#include <QAction>
#include <QApplication>
#include <QGuiApplication>
#include <QMenu>
#include <QPalette>
#include <QSystemTrayIcon>

StatusItem::StatusItem(QObject* parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>())
    , m_tray(std::make_unique<QSystemTrayIcon>())
{
    QAction* copy = m_menu->addAction(QStringLiteral("Copy Diagnostics"));
    connect(copy, &QAction::triggered, this, &StatusItem::copyDiagnosticsRequested);
    m_menu->addSeparator();
    QAction* quit = m_menu->addAction(QStringLiteral("Quit Velotide"));
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);
    m_tray->setContextMenu(m_menu.get());
    connect(m_tray.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    emit activated();
            });
    setState(false, QString());
    m_tray->show();
}

StatusItem::~StatusItem() = default;

void StatusItem::setState(bool armed, const QString& status)
{
    const QString tip =
        status.isEmpty() ? QStringLiteral("Velotide") : QStringLiteral("Velotide\n") + status;
    if (m_tray->toolTip() != tip)
        m_tray->setToolTip(tip);
    if (m_painted && armed == m_armed)
        return;
    m_armed = armed;
    paint();
}

void StatusItem::notify(const QString& title, const QString& message)
{
    if (m_tray->isVisible() && QSystemTrayIcon::supportsMessages())
        m_tray->showMessage(title, message, QSystemTrayIcon::Information, 10000);
}

QString StatusItem::toolTip() const
{
    return m_tray->toolTip();
}

QIcon StatusItem::icon() const
{
    return m_tray->icon();
}

bool StatusItem::isTrayAvailable() const
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void StatusItem::paint()
{
    const SymbolIcons::Icon icon =
        m_symbols.symbol(m_armed ? QStringLiteral("speaker.wave.3.fill")
                                 : QStringLiteral("speaker.badge.exclamationmark.fill"));
    const QColor ink = QGuiApplication::palette().color(QPalette::WindowText);
    QIcon drawn;
    for (const int size : {16, 22, 24, 32, 48})
        drawn.addPixmap(SymbolIcons::render(icon, QSize(size, size), 1.0, ink));
    m_tray->setIcon(drawn);
    m_painted = true;
}
