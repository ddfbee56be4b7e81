#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QString>

class GSettingsWatch;

// Whether the desktop wants light or dark windows, kept current without ever waiting on
// the desktop (asynchronous D-Bus calls, `gsettings` child processes). The first source
// that states a preference wins:
//
//   1. the freedesktop appearance setting, through the settings portal
//      (org.freedesktop.appearance color-scheme: 1 dark, 2 light, 0 no preference)
//   2. GNOME's org.gnome.desktop.interface color-scheme (prefer-dark, prefer-light)
//   3. GNOME's gtk-theme, when its name ends in "-dark"
//
// With none of them, the application palette decides: dark when its window colour is
// darker than its text colour.
class ColorScheme : public QObject {
    Q_OBJECT
public:
    enum class Preference { None, Light, Dark };

    explicit ColorScheme(QObject* parent = nullptr);

    // What the desktop states; None until an answer arrives or when it states nothing.
    Preference preference() const { return m_preference; }
    // The preference, or with none, the application palette.
    bool isDark() const { return m_dark; }

signals:
    void changed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private slots:
    void onSettingChanged(const QString& group, const QString& key, const QDBusVariant& value);

private:
    void watchPortal();
    void readPortal(const QString& method);
    void onGSettings(const QString& schema, const QString& key, const QByteArray& value);
    void recompute();

    GSettingsWatch* m_gsettings = nullptr;
    Preference m_portal = Preference::None;
    // Counts the portal's answers, so that a late reply never overrides a newer signal.
    int m_portalSerial = 0;
    Preference m_gnome = Preference::None;
    bool m_gtkThemeDark = false;
    Preference m_preference = Preference::None;
    bool m_dark = false;
};
