#pragma once

#include "ui/HudLook.h"
#include "ui/SymbolIcons.h"

#include <QWidget>

enum class HudMaterial;

// The overlay's window: frameless, always on top, input-transparent and never focused.
// It paints the backdrop, the icon, the track and the fill itself.
class HudPanel : public QWidget {
    Q_OBJECT
public:
    HudPanel();

    void setReading(const HudReading& reading, const SymbolIcons::Icon& icon);
    void setLook(HudMaterial material, bool increaseContrast);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void paintBackdrop(QPainter& painter);

    HudReading m_reading;
    SymbolIcons::Icon m_icon;
    HudMaterial m_material;
    bool m_increaseContrast = false;
};
