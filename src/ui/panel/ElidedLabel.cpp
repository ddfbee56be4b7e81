#include "ui/panel/ElidedLabel.h"

#include <QFontMetricsF>
#include <QPainter>

namespace {
// How far the letters may close up before the text is cut: beyond this it reads worse than
// an ellipsis.
constexpr qreal tightestSpacing = 96.0;
} // namespace

ElidedLabel::ElidedLabel(panel_look::Shade shade, QWidget* parent)
    : QLabel(parent)
    , m_shade(shade)
{
}

void ElidedLabel::setFullText(const QString& text)
{
    if (text == m_text)
        return;
    m_text = text;
    // QLabel's own text is what screen readers read; it stays whole.
    setText(text);
    update();
}

void ElidedLabel::setShade(panel_look::Shade shade)
{
    if (shade == m_shade)
        return;
    m_shade = shade;
    update();
}

QFont ElidedLabel::fittedFont() const
{
    QFont f = font();
    if (QFontMetricsF(f).horizontalAdvance(m_text) <= width())
        return f;
    f.setLetterSpacing(QFont::PercentageSpacing, tightestSpacing);
    return f;
}

bool ElidedLabel::isElided() const
{
    return QFontMetricsF(fittedFont()).horizontalAdvance(m_text) > width();
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const QFont f = fittedFont();
    painter.setFont(f);
    painter.setPen(panel_look::color(palette(), m_shade));
    const QString shown = QFontMetricsF(f).elidedText(m_text, Qt::ElideRight, width());
    painter.drawText(rect(), int(alignment() | Qt::TextSingleLine), shown);
}
