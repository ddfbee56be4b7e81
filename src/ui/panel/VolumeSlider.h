#pragma once

#include <QSlider>

// The volume slider, 0 to 100. Screen readers read its value as a percentage of the locale
// ("40%") rather than a bare number.
class VolumeSlider : public QSlider {
    Q_OBJECT
public:
    explicit VolumeSlider(QWidget* parent = nullptr);

    // The value as the screen reader reads it.
    QString spokenValue() const;
};
