#include "ui/panel/SymbolButton.h"

#include <QPainter>
#include <QStyleOptionFocusRect>

namespace {
constexpr int labelPixels = 9;
constexpr int labelHeight = 12;
constexpr int labelGap = 3;
} // namespace

SymbolButton::SymbolButton(SymbolIcons& symbols, int symbolSize, QWidget* parent)
    : QPushButton(parent)
    , m_symbols(symbols)
    , m_symbolSize(symbolSize)
{
    setFlat(true);
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
}

void SymbolButton::setSymbol(const QString& name)
{
    if (name == m_symbol)
        return;
    m_symbol = name;
    update();
}

void SymbolButton::setLabel(const QString& label)
{
    if (label == m_label)
        return;
    m_label = label;
    setAccessibleName(label);
    update();
}

void SymbolButton::setShade(panel_look::Shade shade)
{
    if (shade == m_shade)
        return;
    m_shade = shade;
    update();
}

void SymbolButton::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    if (isDown() || (underMouse() && isEnabled())) {
        QColor wash = pal.color(QPalette::WindowText);
        wash.setAlphaF(isDown() ? 0.14f : 0.07f);
        painter.setBrush(wash);
        painter.setPen(Qt::NoPen);
        painter.drawRoundedRect(QRectF(rect()).adjusted(2, 1, -2, -1), 6, 6);
    }
    QColor ink = panel_look::color(pal, m_shade);
    if (!isEnabled())
        ink.setAlphaF(ink.alphaF() * 0.35f);

    const int contentHeight = m_symbolSize + (m_label.isEmpty() ? 0 : labelGap + labelHeight);
    const int top = (height() - contentHeight) / 2;
    const SymbolIcons::Icon icon = m_symbols.symbol(m_symbol);
    if (!icon.isNull()) {
        const QPixmap pixmap =
            SymbolIcons::render(icon, QSize(m_symbolSize, m_symbolSize), devicePixelRatioF(), ink);
        painter.drawPixmap((width() - m_symbolSize) / 2, top, pixmap);
    }
    if (!m_label.isEmpty()) {
        painter.setFont(panel_look::font(font(), labelPixels));
        QColor labelInk = panel_look::color(pal, panel_look::Shade::secondary);
        if (!isEnabled())
            labelInk.setAlphaF(labelInk.alphaF() * 0.5f);
        painter.setPen(labelInk);
        painter.drawText(QRect(0, top + m_symbolSize + labelGap, width(), labelHeight),
                         Qt::AlignHCenter | Qt::AlignTop, m_label);
    }
    if (hasFocus()) {
        QStyleOptionFocusRect option;
        option.initFrom(this);
        option.rect = rect().adjusted(1, 1, -1, -1);
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
    }
}
