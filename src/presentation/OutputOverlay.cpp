#include "presentation/OutputOverlay.h"

#include "coordination/OutputViewModel.h"
#include "presentation/SymbolIcon.h"

#include <QLinearGradient>
#include <QPainter>
#include <QTextOption>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr qreal noticePadding = 32;
constexpr qreal noticeSpacing = 14;
constexpr qreal noticeMessageWidth = 520;

// The desktop's usual status colours, bright enough for a dark canvas.
const QColor red(0xe0, 0x1b, 0x24);
const QColor blue(0x35, 0x84, 0xe4);
const QColor green(0x2e, 0xc2, 0x7e);
const QColor yellow(0xf5, 0xc2, 0x11);
const QColor orange(0xff, 0x78, 0x00);

QColor neutral(bool isLightCanvas, float opacity)
{
    return isLightCanvas ? QColor::fromRgbF(0, 0, 0, opacity) : QColor::fromRgbF(1, 1, 1, opacity);
}

QFont noticeFont(const QFont& base, int pixelSize, QFont::Weight weight)
{
    QFont font = base;
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

} // namespace

OutputOverlay::OutputOverlay(OutputViewModel& viewModel, QWidget* parent)
    : QWidget(parent), m_viewModel(viewModel)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_NoSystemBackground);
}

NoticeSymbol OutputOverlay::noticeSymbol(const StreamStatus& status, bool isLightCanvas)
{
    switch (status.kind()) {
    case StreamStatus::Kind::failed:
        return {u"exclamationmark.triangle.fill"_s, red};
    case StreamStatus::Kind::idle:
        // The secondary label colour of a light or dark appearance.
        return {u"eye.slash"_s, neutral(isLightCanvas, isLightCanvas ? 0.5f : 0.55f)};
    case StreamStatus::Kind::starting:
        return {u"hourglass"_s, blue};
    case StreamStatus::Kind::running:
        return {u"display"_s, green};
    case StreamStatus::Kind::blank:
        break;
    }
    switch (status.blankReason().value_or(OutputBlankReason::contentUnavailable)) {
    case OutputBlankReason::permissionMissing:
        return {u"lock.shield.fill"_s, yellow};
    case OutputBlankReason::noDisplaySelected:
        return {u"display.slash"_s, orange};
    case OutputBlankReason::nothingSelected:
        return {u"eye.slash"_s, orange};
    case OutputBlankReason::panicHidden:
        return {u"eye.slash"_s, neutral(isLightCanvas, 0.7f)};
    case OutputBlankReason::contentUnavailable:
        break;
    }
    return {u"rectangle.badge.exclamationmark"_s, orange};
}

void OutputOverlay::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_viewModel.showsNotice())
        paintNotice(painter);
    paintFrame(painter);
}

// A vertical stack centred in the padded window: symbol, title, message.
void OutputOverlay::paintNotice(QPainter& painter)
{
    const bool light = m_viewModel.isLightCanvas();
    const QColor titleColor = light ? QColor(0, 0, 0) : QColor(255, 255, 255);
    const QColor messageColor =
        light ? QColor::fromRgbF(0, 0, 0, 0.68f) : QColor::fromRgbF(1, 1, 1, 0.72f);
    const QFont titleFont = noticeFont(font(), 20, QFont::DemiBold);
    const QFont messageFont = noticeFont(font(), 14, QFont::Normal);

    const QRectF area =
        QRectF(rect()).adjusted(noticePadding, noticePadding, -noticePadding, -noticePadding);
    if (area.width() <= 0 || area.height() <= 0)
        return;
    QTextOption centred(Qt::AlignHCenter);
    centred.setWrapMode(QTextOption::WordWrap);
    const qreal messageWidth = std::min(noticeMessageWidth, area.width());

    const QString title = m_viewModel.noticeTitle();
    const QString message = m_viewModel.noticeMessage();
    painter.setFont(titleFont);
    const QRectF titleBounds =
        painter.boundingRect(QRectF(0, 0, area.width(), area.height()), title, centred);
    painter.setFont(messageFont);
    const QRectF messageBounds =
        message.isEmpty()
            ? QRectF()
            : painter.boundingRect(QRectF(0, 0, messageWidth, area.height()), message, centred);
    const qreal height = noticeSymbolSize + noticeSpacing + titleBounds.height() +
                         (message.isEmpty() ? 0 : noticeSpacing + messageBounds.height());
    qreal y = area.center().y() - height / 2;

    const NoticeSymbol symbol = noticeSymbol(m_viewModel.streamStatus(), light);
    painter.drawImage(QPointF(area.center().x() - noticeSymbolSize / 2.0, y),
                      symbolPicture(symbol, devicePixelRatioF()));
    y += noticeSymbolSize + noticeSpacing;

    painter.setFont(titleFont);
    painter.setPen(titleColor);
    painter.drawText(QRectF(area.left(), y, area.width(), titleBounds.height()), title, centred);
    if (message.isEmpty())
        return;
    y += titleBounds.height() + noticeSpacing;
    painter.setFont(messageFont);
    painter.setPen(messageColor);
    painter.drawText(
        QRectF(area.center().x() - messageWidth / 2, y, messageWidth, messageBounds.height()),
        message, centred);
}

const QImage& OutputOverlay::symbolPicture(const NoticeSymbol& symbol, qreal devicePixelRatio)
{
    if (m_picture.isNull() || m_pictureSymbol != symbol || m_pictureRatio != devicePixelRatio) {
        m_picture = symbolImage(symbol.name, noticeSymbolSize, symbol.tint, devicePixelRatio);
        m_pictureSymbol = symbol;
        m_pictureRatio = devicePixelRatio;
    }
    return m_picture;
}

namespace {

void strokeInside(QPainter& painter, const QRectF& r, const QBrush& brush)
{
    if (r.width() < 2 || r.height() < 2)
        return;
    // Four one-pixel bands, so no pixel is painted twice.
    painter.fillRect(QRectF(r.left(), r.top(), r.width(), 1), brush);
    painter.fillRect(QRectF(r.left(), r.bottom() - 1, r.width(), 1), brush);
    painter.fillRect(QRectF(r.left(), r.top() + 1, 1, r.height() - 2), brush);
    painter.fillRect(QRectF(r.right() - 1, r.top() + 1, 1, r.height() - 2), brush);
}

} // namespace

// Three one-pixel borders inside the window's edge: a light gradient rim, a
// dark line and a faint light line.
void OutputOverlay::paintFrame(QPainter& painter)
{
    painter.setRenderHint(QPainter::Antialiasing, false);
    const QRectF outer = rect();
    QLinearGradient rim(outer.topLeft(), outer.bottomLeft());
    rim.setColorAt(0, QColor::fromRgbF(1, 1, 1, 0.24f));
    rim.setColorAt(0.5, QColor::fromRgbF(1, 1, 1, 0.12f));
    rim.setColorAt(1, QColor::fromRgbF(1, 1, 1, 0.08f));
    strokeInside(painter, outer, QBrush(rim));
    strokeInside(painter, outer.adjusted(1, 1, -1, -1), QColor::fromRgbF(0, 0, 0, 0.34f));
    strokeInside(painter, outer.adjusted(2, 2, -2, -2), QColor::fromRgbF(1, 1, 1, 0.04f));
}

} // namespace vistrel
