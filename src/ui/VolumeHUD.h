#pragma once

#include "desktop/DisplayOptions.h"
#include "ui/HudLook.h"
#include "ui/HudSpeech.h"
#include "ui/HudTimeline.h"
#include "ui/SymbolIcons.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class Announcer;
class HudPanel;
class QWidget;

// What the capsule is drawn on.
enum class HudMaterial {
    Translucent,              // a compositor blends it with what is behind
    OpaqueReduceTransparency, // the user asked for less transparency
    OpaqueNoCompositor,       // nothing could blend it; shaped to a capsule instead
};

// The volume overlay: a click-through capsule in the top-right corner of the primary
// screen with a speaker icon and a level bar, shown after every redirected volume key.
// It appears at full opacity at once, holds, then fades; a burst of presses keeps it up by
// moving one deadline. It also speaks the level to screen-reader users. Main thread only.
class VolumeHUD : public QObject {
    Q_OBJECT
public:
    // Follows `options` when given (it must outlive the overlay), otherwise watches the
    // desktop's settings itself.
    explicit VolumeHUD(DisplayOptionsWatcher* options = nullptr, QObject* parent = nullptr);
    ~VolumeHUD() override;

    // volume 0-100; speaker may be empty; hold is how long it stays fully visible, in
    // seconds (default 1.2).
    void show(int volume, bool muted, bool unreachable, const QString& speaker,
              std::optional<double> hold = std::nullopt);
    // Ends the overlay early (the user clicked elsewhere): fades at once if it is holding.
    void dismiss();

    // The accessibility settings changed: picks the backdrop again, and the track's shade.
    void setDisplayOptions(const DisplayOptions& options);

    const HudReading& reading() const { return m_reading; }
    HudTimeline::State state() const { return m_timeline.state(); }
    double alpha() const { return m_timeline.alpha(); }
    HudMaterial material() const { return m_material; }
    const DisplayOptions& displayOptions() const { return m_options; }
    QWidget* panel() const;

private:
    void build();
    void position();
    void applyMaterial();
    void applyAlpha(bool raise);
    void scheduleTick();
    void tick();
    void announce(const HudReading& reading);
    void announceTick();
    double now() const;

    std::unique_ptr<HudPanel> m_panel;
    std::unique_ptr<DisplayOptionsWatcher> m_ownOptions;
    Announcer* m_announcer = nullptr;
    SymbolIcons m_symbols;
    HudTimeline m_timeline;
    AnnouncementSchedule m_speech;
    QTimer m_tickTimer;
    QTimer m_announceTimer;
    HudReading m_reading;
    DisplayOptions m_options;
    HudMaterial m_material = HudMaterial::Translucent;
    bool m_materialChosen = false;
};
