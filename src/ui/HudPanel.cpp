#include "ui/HudPanel.h"

#include "ui/VolumeHUD.h"

#include <QAccessibleWidget>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>

namespace {

// The window's own background, as a share of full opacity, over a compositor: enough to
// keep the bar readable over a busy picture, with the desktop still showing through.
constexpr double translucentBackdropAlpha = 0.86;
constexpr double translucentOutlineAlpha = 0.12;

// Screen readers must not land on the overlay: it speaks through the announcer instead.
class UnlistedPanel : public QAccessibleWidget {
public:
    explicit UnlistedPanel(QWidget* panel)
        : QAccessibleWidget(panel, QAccessible::NoRole)
    {
    }
    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.invisible = true;
        state.focusable = false;
        return state;
    }
    QString text(QAccessible::Text) const override { return {}; }
};

QAccessibleInterface* makeAccessible(const QString& className, QObject* object)
{
    if (className == QLatin1String("HudPanel"))
        return new UnlistedPanel(static_cast<QWidget*>(object));
    return nullptr;
}

QRegion capsuleRegion()
{
    const int h = HudLook::panelHeight;
    const int w = HudLook::panelWidth;
    QRegion region(h / 2, 0, w - h, h);
    region += QRegion(0, 0, h, h, QRegion::Ellipse);
    region += QRegion(w - h, 0, h, h, QRegion::Ellipse);
    return region;
}

} // namespace

HudPanel::HudPanel()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus |
                           Qt::X11BypassWindowManagerHint | Qt::NoDropShadowWindowHint)
    , m_material(HudMaterial::Translucent)
{
    // Unmanaged by the window manager, the capsule stands over full-screen windows, on
    // every workspace, and out of the task switcher.
    static const bool unlisted = [] {
        QAccessible::installFactory(makeAccessible);
        return true;
    }();
    Q_UNUSED(unlisted);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_X11NetWmWindowTypeNotification);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(HudLook::panelWidth, HudLook::panelHeight);
    setWindowTitle(QStringLiteral("Velotide volume"));
}

void HudPanel::setReading(const HudReading& reading, const SymbolIcons::Icon& icon)
{
    m_reading = reading;
    m_icon = icon;
    update();
}

void HudPanel::setLook(HudMaterial material, bool increaseContrast)
{
    m_material = material;
    m_increaseContrast = increaseContrast;
    if (material == HudMaterial::OpaqueNoCompositor)
        setMask(capsuleRegion());
    else
        clearMask();
    update();
}

void HudPanel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    paintBackdrop(painter);

    const QColor label = palette().color(QPalette::WindowText);
    if (!m_icon.isNull()) {
        const QRectF r = HudLook::iconRect;
        painter.drawPixmap(r.topLeft(),
                           SymbolIcons::render(m_icon, r.size().toSize(), devicePixelRatioF(),
                                               HudLook::iconColor(m_reading, label)));
    }

    painter.setPen(Qt::NoPen);
    painter.setBrush(HudLook::trackColor(m_increaseContrast, label));
    painter.drawRoundedRect(HudLook::trackRect(), HudLook::trackRadius, HudLook::trackRadius);
    const QRectF fill = HudLook::fillRect(m_reading.volume);
    if (fill.width() > 0) {
        painter.setBrush(HudLook::fillColor(m_reading, label));
        painter.drawRoundedRect(fill, HudLook::trackRadius, HudLook::trackRadius);
    }
}

void HudPanel::paintBackdrop(QPainter& painter)
{
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);

    const QColor window = palette().color(QPalette::Window);
    const QColor label = palette().color(QPalette::WindowText);
    const QRectF bounds = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const double radius = bounds.height() / 2;
    switch (m_material) {
    case HudMaterial::Translucent:
        painter.setPen(HudLook::withAlpha(label, translucentOutlineAlpha));
        painter.setBrush(HudLook::withAlpha(window, translucentBackdropAlpha));
        break;
    case HudMaterial::OpaqueReduceTransparency:
        painter.setPen(m_increaseContrast ? QPen(label, 1) : QPen(Qt::NoPen));
        painter.setBrush(window);
        break;
    case HudMaterial::OpaqueNoCompositor:
        // The window is cut to the capsule; fill all of it so no edge pixel is left
        // undrawn.
        painter.fillRect(rect(), window);
        if (m_increaseContrast) {
            painter.setPen(QPen(label, 1));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(bounds, radius, radius);
        }
        return;
    }
    painter.drawRoundedRect(bounds, radius, radius);
}
