#include "ui/VolumeHUD.h"

#include "desktop/Compositor.h"
#include "support/Log.h"
#include "ui/Announcer.h"
#include "ui/HudPanel.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace {

double monotonicSeconds()
{
    static const QElapsedTimer start = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    return double(start.nsecsElapsed()) / 1e9;
}

int millisecondsUntil(double when, double now)
{
    return std::max(0, int(std::ceil((when - now) * 1000)));
}

HudMaterial chooseMaterial(const DisplayOptions& options)
{
    if (options.reduceTransparency)
        return HudMaterial::OpaqueReduceTransparency;
    if (!isCompositorRunning())
        return HudMaterial::OpaqueNoCompositor;
    return HudMaterial::Translucent;
}

QString materialLogLine(HudMaterial material)
{
    switch (material) {
    case HudMaterial::OpaqueReduceTransparency:
        return QStringLiteral("HUD material: opaque (Reduce Transparency is on)");
    case HudMaterial::OpaqueNoCompositor:
        return QStringLiteral("HUD material: opaque (no compositor is running)");
    case HudMaterial::Translucent:
        break;
    }
    return QStringLiteral("HUD material: translucent (compositor is running)");
}

} // namespace

VolumeHUD::VolumeHUD(DisplayOptionsWatcher* options, QObject* parent)
    : QObject(parent)
    , m_panel(std::make_unique<HudPanel>())
    , m_announcer(new Announcer(this))
{
    if (!options) {
        m_ownOptions = std::make_unique<DisplayOptionsWatcher>();
        options = m_ownOptions.get();
    }
    m_options = options->options();
    connect(options, &DisplayOptionsWatcher::changed, this, &VolumeHUD::setDisplayOptions);

    m_tickTimer.setSingleShot(true);
    m_tickTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_tickTimer, &QTimer::timeout, this, &VolumeHUD::tick);
    m_announceTimer.setSingleShot(true);
    m_announceTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_announceTimer, &QTimer::timeout, this, &VolumeHUD::announceTick);

    build();
}

VolumeHUD::~VolumeHUD() = default;

QWidget* VolumeHUD::panel() const
{
    return m_panel.get();
}

void VolumeHUD::build()
{
    m_timeline.setReduceMotion(m_options.reduceMotion);
    applyMaterial();
    position();
    // The native window exists from now on; it is mapped only while the overlay shows,
    // since without a compositor a transparent window would still cover what is behind.
    m_panel->winId();
}

void VolumeHUD::show(int volume, bool muted, bool unreachable, const QString& speaker,
                     std::optional<double> hold)
{
    m_reading = {volume, muted, unreachable, speaker};
    m_panel->setReading(m_reading, m_symbols.symbol(HudLook::symbolName(m_reading)));

    const bool wasAway = m_timeline.show(now(), hold);
    if (wasAway) {
        if (chooseMaterial(m_options) != m_material)
            applyMaterial();
        position();
    }
    // Raised on every press: a full-screen window may have come up while it was showing.
    applyAlpha(true);
    scheduleTick();
    announce(m_reading);
}

void VolumeHUD::dismiss()
{
    m_announceTimer.stop();
    m_speech.cancel();
    m_timeline.dismiss(now());
    applyAlpha(false);
    scheduleTick();
}

void VolumeHUD::setDisplayOptions(const DisplayOptions& options)
{
    m_options = options;
    m_timeline.setReduceMotion(options.reduceMotion);
    applyMaterial();
}

void VolumeHUD::applyMaterial()
{
    m_material = chooseMaterial(m_options);
    Log::info(materialLogLine(m_material));
    m_panel->setLook(m_material, m_options.increaseContrast);
}

// Top-right corner of the primary screen's free area, so below a top panel.
void VolumeHUD::position()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen && !QGuiApplication::screens().isEmpty())
        screen = QGuiApplication::screens().first();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    m_panel->move(area.x() + area.width() - HudLook::panelWidth - HudLook::rightMargin,
                  area.y() + HudLook::topMargin);
}

void VolumeHUD::applyAlpha(bool raise)
{
    const double alpha = m_timeline.alpha();
    if (alpha <= 0) {
        m_panel->hide();
        return;
    }
    m_panel->setWindowOpacity(alpha);
    if (!m_panel->isVisible())
        m_panel->QWidget::show();
    if (raise)
        m_panel->raise();
}

void VolumeHUD::scheduleTick()
{
    const std::optional<double> wake = m_timeline.nextWake();
    if (!wake) {
        m_tickTimer.stop();
        return;
    }
    m_tickTimer.start(millisecondsUntil(*wake, now()));
}

void VolumeHUD::tick()
{
    m_timeline.advance(now());
    applyAlpha(false);
    scheduleTick();
}

void VolumeHUD::announce(const HudReading& reading)
{
    if (!m_options.screenReader)
        return;
    const bool isLevel = !reading.muted && !reading.unreachable;
    if (const auto text = m_speech.announce(announcementText(reading), isLevel, now()))
        m_announcer->post(*text);
    m_announceTimer.start(millisecondsUntil(*m_speech.nextWake(), now()));
}

void VolumeHUD::announceTick()
{
    if (const auto text = m_speech.advance(now()))
        m_announcer->post(*text);
    if (const auto wake = m_speech.nextWake())
        m_announceTimer.start(millisecondsUntil(*wake, now()));
}

double VolumeHUD::now() const
{
    return monotonicSeconds();
}
