#pragma once

// What lies over everything else in the output window: the notice that says
// why nothing useful can be shown (a tinted symbol, a title and a message,
// centred), and the thin decorative frame along the window's edge. It takes
// no input, so clicks reach the window below.
//
// Widget pixels, y down. Main thread only; the view model must outlive it.

#include "capture/StreamStatus.h"

#include <QColor>
#include <QImage>
#include <QString>
#include <QWidget>

namespace vistrel {

class OutputViewModel;

// The notice's symbol and the colour it is drawn in.
struct NoticeSymbol {
    QString name;
    QColor tint;

    friend bool operator==(const NoticeSymbol&, const NoticeSymbol&) = default;
};

class OutputOverlay final : public QWidget {
    Q_OBJECT

public:
    // The output window's notice and frame, or the preview's small notice
    // (a neutral "eye.slash", smaller type, no frame).
    enum class Style { window, compact };

    static constexpr int noticeSymbolSize = 38;
    // How far the window style's frame reaches in from the edge.
    static constexpr int frameWidth = 3;

    OutputOverlay(OutputViewModel& viewModel, Style style, QWidget* parent);

    // The symbol for a stream status. Only the neutral tints (idle, panic
    // hidden) follow the canvas, so they stay readable on white.
    static NoticeSymbol noticeSymbol(const StreamStatus& status, bool isLightCanvas);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void paintNotice(QPainter& painter);
    void paintFrame(QPainter& painter);
    const QImage& symbolPicture(const NoticeSymbol& symbol, int size, qreal devicePixelRatio);

    OutputViewModel& m_viewModel;
    Style m_style;
    // The last symbol drawn: the overlay repaints with every video frame.
    NoticeSymbol m_pictureSymbol;
    qreal m_pictureRatio = 0;
    QImage m_picture;
};

} // namespace vistrel
