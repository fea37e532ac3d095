#include "control/SourcePickerStyle.h"

#include <QPainter>
#include <QWidget>

namespace vistrel {

namespace {

const QColor green(0x2e, 0x9d, 0x4a);
const QColor orange(0xe0, 0x7b, 0x00);

QColor mix(const QColor& a, const QColor& b, float amountOfA)
{
    const float rest = 1.0f - amountOfA;
    return QColor::fromRgbF(a.redF() * amountOfA + b.redF() * rest,
                            a.greenF() * amountOfA + b.greenF() * rest,
                            a.blueF() * amountOfA + b.blueF() * rest);
}

} // namespace

QColor secondaryTextColor(const QPalette& palette)
{
    return mix(palette.color(QPalette::WindowText), palette.color(QPalette::Window), 0.6f);
}

QColor visibilityTint(SourceVisibilityState state, const QPalette& palette)
{
    switch (state) {
    case SourceVisibilityState::shown:
        return green;
    case SourceVisibilityState::partial:
        return orange;
    case SourceVisibilityState::hidden:
        break;
    }
    return secondaryTextColor(palette);
}

QColor toneTint(BadgeTone tone, const QPalette& palette)
{
    switch (tone) {
    case BadgeTone::accent:
        return palette.color(QPalette::Highlight);
    case BadgeTone::warning:
        return orange;
    case BadgeTone::neutral:
        break;
    }
    return secondaryTextColor(palette);
}

void paintRowHover(QWidget& row)
{
    if (!row.underMouse())
        return;
    QPainter painter(&row);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor fill = row.palette().color(QPalette::Highlight);
    fill.setAlphaF(0.08f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(QRectF(row.rect()).adjusted(1, 0, -1, 0), 6, 6);
}

} // namespace vistrel
