#include "presentation/OutputOverlay.h"

#include "coordination/OutputViewModel.h"
#include "presentation/SymbolIcon.h"

#include <QLinearGradient>
#include <QPainter>
#include <QTextOption>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

struct NoticeMetrics {
    qreal padding;
    qreal spacing;
    qreal messageWidth;
    int symbolSize;
    int titlePixels;
    int messagePixels;
};

constexpr NoticeMetrics windowNotice{32, 14, 520, OutputOverlay::noticeSymbolSize, 20, 14};
constexpr NoticeMetrics compactNotice{16, 8, 400, 20, 12, 10};

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

OutputOverlay::OutputOverlay(OutputViewModel& viewModel, Style style, QWidget* parent)
    : QWidget(parent), m_viewModel(viewModel), m_style(style)
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
    if (m_style == Style::window)
        paintFrame(painter);
}

// A vertical stack centred in the padded window: symbol, title, message.
void OutputOverlay::paintNotice(QPainter& painter)
{
    const bool light = m_viewModel.isLightCanvas();
    const QColor titleColor = light ? QColor(0, 0, 0) : QColor(255, 255, 255);
    const QColor messageColor =
        light ? QColor::fromRgbF(0, 0, 0, 0.68f) : QColor::fromRgbF(1, 1, 1, 0.72f);
    const NoticeMetrics& metrics = m_style == Style::window ? windowNotice : compactNotice;
    const QFont titleFont = noticeFont(font(), metrics.titlePixels, QFont::DemiBold);
    const QFont messageFont = noticeFont(font(), metrics.messagePixels, QFont::Normal);
    const qreal padding = metrics.padding;
    const qreal spacing = metrics.spacing;
    const int symbolSize = metrics.symbolSize;

    const QRectF area = QRectF(rect()).adjusted(padding, padding, -padding, -padding);
    if (area.width() <= 0 || area.height() <= 0)
        return;
    QTextOption centred(Qt::AlignHCenter);
    centred.setWrapMode(QTextOption::WordWrap);
    const qreal messageWidth = std::min(metrics.messageWidth, area.width());

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
    const qreal height = symbolSize + spacing + titleBounds.height() +
                         (message.isEmpty() ? 0 : spacing + messageBounds.height());
    qreal y = area.center().y() - height / 2;

    // The preview's notice is a quiet neutral mark whatever the status.
    const NoticeSymbol symbol = m_style == Style::window
                                    ? noticeSymbol(m_viewModel.streamStatus(), light)
                                    : NoticeSymbol{u"eye.slash"_s, neutral(light, 0.7f)};
    painter.drawImage(QPointF(area.center().x() - symbolSize / 2.0, y),
                      symbolPicture(symbol, symbolSize, devicePixelRatioF()));
    y += symbolSize + spacing;

    painter.setFont(titleFont);
    painter.setPen(titleColor);
    painter.drawText(QRectF(area.left(), y, area.width(), titleBounds.height()), title, centred);
    if (message.isEmpty())
        return;
    y += titleBounds.height() + spacing;
    painter.setFont(messageFont);
    painter.setPen(messageColor);
    painter.drawText(
        QRectF(area.center().x() - messageWidth / 2, y, messageWidth, messageBounds.height()),
        message, centred);
}

const QImage& OutputOverlay::symbolPicture(const NoticeSymbol& symbol, int size,
                                           qreal devicePixelRatio)
{
    if (m_picture.isNull() || m_pictureSymbol != symbol || m_pictureRatio != devicePixelRatio) {
        m_picture = symbolImage(symbol.name, size, symbol.tint, devicePixelRatio);
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
