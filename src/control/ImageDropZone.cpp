#include "control/ImageDropZone.h"

#include "control/DeckState.h"
#include "control/DeckText.h"
#include "presentation/SymbolIcon.h"

#include <QDragEnterEvent>
#include <QLabel>
#include <QMimeData>
#include <QPainter>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {
constexpr int symbolSize = 28;
} // namespace

ImageDropZone::ImageDropZone(QWidget* parent) : QFrame(parent)
{
    setAcceptDrops(true);
    setMinimumHeight(96);
    auto* symbol = new QLabel(this);
    symbol->setAlignment(Qt::AlignCenter);
    symbol->setPixmap(QPixmap::fromImage(
        symbolImage(u"photo.badge.plus"_s, symbolSize, deckColor::secondary, devicePixelRatioF())));
    auto* text = new QLabel(deckTr("Drop an image here"), this);
    text->setAlignment(Qt::AlignCenter);
    QFont bold = text->font();
    bold.setWeight(QFont::DemiBold);
    text->setFont(bold);
    auto* hint =
        new QLabel(deckTr("PNG, JPG, WebP, and other common image formats are supported."), this);
    hint->setAlignment(Qt::AlignCenter);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    QFont small = hint->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    hint->setFont(small);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 10);
    layout->setSpacing(4);
    layout->addWidget(symbol);
    layout->addWidget(text);
    layout->addWidget(hint);
}

std::optional<QUrl> ImageDropZone::droppedFile(const QMimeData& data)
{
    for (const QUrl& url : data.urls()) {
        if (url.isLocalFile() && !url.toLocalFile().isEmpty())
            return url;
    }
    return std::nullopt;
}

void ImageDropZone::dragEnterEvent(QDragEnterEvent* event)
{
    if (!event->mimeData() || !droppedFile(*event->mimeData()))
        return;
    event->acceptProposedAction();
    setDropTargeted(true);
}

void ImageDropZone::dragLeaveEvent(QDragLeaveEvent* event)
{
    setDropTargeted(false);
    QFrame::dragLeaveEvent(event);
}

void ImageDropZone::dropEvent(QDropEvent* event)
{
    setDropTargeted(false);
    const std::optional<QUrl> file =
        event->mimeData() ? droppedFile(*event->mimeData()) : std::nullopt;
    if (!file)
        return;
    event->acceptProposedAction();
    Q_EMIT fileDropped(*file);
}

void ImageDropZone::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor accent = m_isDropTargeted ? deckColor::blue : palette().color(QPalette::Mid);
    if (m_isDropTargeted) {
        QColor wash = deckColor::blue;
        wash.setAlphaF(0.12f);
        painter.setBrush(wash);
    }
    painter.setPen(QPen(accent, m_isDropTargeted ? 2.0 : 1.2, Qt::DashLine));
    painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 10, 10);
}

void ImageDropZone::setDropTargeted(bool targeted)
{
    if (m_isDropTargeted == targeted)
        return;
    m_isDropTargeted = targeted;
    update();
    Q_EMIT isDropTargetedChanged(targeted);
}

} // namespace vistrel
