#pragma once

#include "ui/SymbolIcons.h"
#include "ui/panel/PanelLook.h"

#include <QPushButton>

// A flat button drawn as a symbol, with an optional small label under it, both in one shade
// of the palette. Buttons that toggle something stay plain push buttons whose shade shows the
// state: a screen reader's "Press" then reaches the same signal as a click.
class SymbolButton : public QPushButton {
    Q_OBJECT
public:
    SymbolButton(SymbolIcons& symbols, int symbolSize, QWidget* parent = nullptr);

    void setSymbol(const QString& name);
    const QString& symbol() const { return m_symbol; }
    // The label under the symbol; also the button's accessible name.
    void setLabel(const QString& label);
    const QString& label() const { return m_label; }
    void setShade(panel_look::Shade shade);
    panel_look::Shade shade() const { return m_shade; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    SymbolIcons& m_symbols;
    int m_symbolSize;
    QString m_symbol;
    QString m_label;
    panel_look::Shade m_shade = panel_look::Shade::primary;
};
