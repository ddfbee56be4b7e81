#include "ui/panel/ArtView.h"

#include "ui/panel/PanelLook.h"

#include <QPainter>
#include <QPainterPath>

namespace {
constexpr qreal cornerRadius = 8;
constexpr int symbolSize = 34;
constexpr int iconSize = 64;
} // namespace

ArtView::ArtView(QWidget* parent)
    : QWidget(parent)
{
}

void ArtView::showImage(const QImage& image)
{
    m_image = image;
    m_icon = {};
    m_symbol = {};
    update();
}

void ArtView::showIcon(const QIcon& icon)
{
    m_image = {};
    m_icon = icon;
    m_symbol = {};
    update();
}

void ArtView::showSymbol(const SymbolIcons::Icon& symbol)
{
    m_image = {};
    m_icon = {};
    m_symbol = symbol;
    update();
}

void ArtView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    QPainterPath square;
    square.addRoundedRect(QRectF(rect()), cornerRadius, cornerRadius);
    painter.setClipPath(square);
    if (!m_image.isNull()) {
        // Fill the square and cut the longer side, as album art is shown everywhere.
        const QSizeF scaled = QSizeF(m_image.size()).scaled(size(), Qt::KeepAspectRatioByExpanding);
        const QRectF target((width() - scaled.width()) / 2, (height() - scaled.height()) / 2,
                            scaled.width(), scaled.height());
        painter.drawImage(target, m_image);
        return;
    }
    QColor wash = palette().color(QPalette::WindowText);
    wash.setAlphaF(0.07f);
    painter.fillRect(rect(), wash);
    if (!m_icon.isNull()) {
        const QRect place((width() - iconSize) / 2, (height() - iconSize) / 2, iconSize, iconSize);
        m_icon.paint(&painter, place);
        return;
    }
    if (!m_symbol.isNull()) {
        const QPixmap pixmap =
            SymbolIcons::render(m_symbol, QSize(symbolSize, symbolSize), devicePixelRatioF(),
                                panel_look::color(palette(), panel_look::Shade::tertiary));
        painter.drawPixmap((width() - symbolSize) / 2, (height() - symbolSize) / 2, pixmap);
    }
}
