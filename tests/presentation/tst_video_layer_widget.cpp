#include "capture/OutputRenderer.h"
#include "presentation/VideoLayerWidget.h"

#include <QBackingStore>
#include <QPaintEvent>
#include <QPainter>
#include <QRandomGenerator>
#include <QTest>
#include <memory>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr QRgb red = 0xffff0000;
constexpr QRgb blue = 0xff0000ff;
constexpr QRgb canvasGreen = 0xff00c000;

// Left half red, right half blue: a picture that is cropped, stretched or
// mirrored shows it at the sampled points.
SampleBuffer twoColourFrame(QSize size)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    painter.fillRect(QRect(0, 0, size.width() / 2, size.height()), QColor::fromRgba(red));
    painter.fillRect(QRect(size.width() / 2, 0, size.width() - size.width() / 2, size.height()),
                     QColor::fromRgba(blue));
    painter.end();
    return SampleBuffer{image, true, std::nullopt, 0, std::nullopt, {}};
}

// Stands in for the output window: paints the canvas colour behind the video.
class CanvasWidget : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter(this).fillRect(rect(), QColor::fromRgba(canvasGreen));
    }
};

class CountingVideo : public VideoLayerWidget {
public:
    int paints = 0;

protected:
    void paintEvent(QPaintEvent* event) override
    {
        ++paints;
        VideoLayerWidget::paintEvent(event);
    }
};

// Remembers what each repaint covered.
class RegionRecordingVideo : public VideoLayerWidget {
public:
    using VideoLayerWidget::VideoLayerWidget;
    QRegion painted;

protected:
    void paintEvent(QPaintEvent* event) override
    {
        painted += event->region();
        VideoLayerWidget::paintEvent(event);
    }
};

void paintNoise(QImage* image, const QRect& area, QRandomGenerator& random)
{
    for (int y = area.top(); y <= area.bottom(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image->scanLine(y));
        for (int x = area.left(); x <= area.right(); ++x)
            line[x] = random.generate() | 0xff000000u;
    }
}

// The raster engine steps along each span of a smoothly scaled image from
// where its clip starts it and blends neighbours in sixteenths, so a redraw
// that starts a span elsewhere may take the next sixteenth: at most 16
// levels across the sharpest edge. Anything missed differs by far more, as
// the frames are noise.
constexpr int roundingSlack = 16;

int largestChannelDifference(const QImage& a, const QImage& b)
{
    if (a.size() != b.size() || a.format() != b.format())
        return 256;
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        const auto* p = reinterpret_cast<const uchar*>(a.constScanLine(y));
        const auto* q = reinterpret_cast<const uchar*>(b.constScanLine(y));
        for (int i = 0; i < a.width() * 4; ++i)
            largest = std::max(largest, std::abs(int(p[i]) - int(q[i])));
    }
    return largest;
}

SampleBuffer solidFrame(QRgb colour)
{
    QImage image(12, 8, QImage::Format_ARGB32_Premultiplied);
    image.fill(colour);
    return SampleBuffer{image, true, std::nullopt, 0, std::nullopt, {}};
}

QImage grabbed(QWidget& widget)
{
    return widget.grab().toImage().convertToFormat(QImage::Format_ARGB32);
}

// Samples well inside each region: the smooth scaling blends the edges.
QPointF inset(const QRectF& rect, double fx, double fy)
{
    return QPointF(rect.x() + rect.width() * fx, rect.y() + rect.height() * fy);
}

} // namespace

class TestVideoLayerWidget : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void frameIsLetterBoxedOverTransparentBars_data()
    {
        QTest::addColumn<QSize>("widgetSize");
        QTest::addColumn<QSize>("frameSize");
        QTest::addColumn<QRectF>("expectedPicture");

        QTest::newRow("square frame in wide view: bars left and right")
            << QSize(200, 100) << QSize(50, 50) << QRectF(50, 0, 100, 100);
        QTest::newRow("wide frame in tall view: bars above and below")
            << QSize(100, 200) << QSize(160, 90) << QRectF(0, 71.875, 100, 56.25);
        QTest::newRow("larger frame, same aspect: fills the view")
            << QSize(160, 90) << QSize(1920, 1080) << QRectF(0, 0, 160, 90);
    }

    void frameIsLetterBoxedOverTransparentBars()
    {
        QFETCH(QSize, widgetSize);
        QFETCH(QSize, frameSize);
        QFETCH(QRectF, expectedPicture);

        OutputRenderer renderer;
        CanvasWidget canvas;
        canvas.resize(widgetSize);
        auto* video = new VideoLayerWidget(&canvas);
        video->resize(widgetSize);
        renderer.addDisplayLayer(video->displayLayer());
        renderer.enqueue(twoColourFrame(frameSize));

        QCOMPARE(video->pictureRect(), expectedPicture);

        const QImage own = grabbed(*video);
        const QImage composed = grabbed(canvas);
        QCOMPARE(own.size(), widgetSize);
        QCOMPARE(own.pixel(inset(expectedPicture, 0.25, 0.5).toPoint()), red);
        QCOMPARE(own.pixel(inset(expectedPicture, 0.75, 0.5).toPoint()), blue);
        QCOMPARE(composed.pixel(inset(expectedPicture, 0.25, 0.5).toPoint()), red);
        QCOMPARE(composed.pixel(inset(expectedPicture, 0.75, 0.5).toPoint()), blue);

        // The bars: nothing of the widget's own, the canvas from behind.
        const QRectF bounds(QPointF(0, 0), QSizeF(widgetSize));
        const QList<QRectF> bars = {
            QRectF(bounds.topLeft(), QPointF(expectedPicture.left(), bounds.bottom())),
            QRectF(QPointF(expectedPicture.right(), 0), bounds.bottomRight()),
            QRectF(bounds.topLeft(), QPointF(bounds.right(), expectedPicture.top())),
            QRectF(QPointF(0, expectedPicture.bottom()), bounds.bottomRight()),
        };
        int sampledBars = 0;
        for (const QRectF& bar : bars) {
            if (bar.width() < 4 || bar.height() < 4)
                continue;
            const QPoint point = bar.center().toPoint();
            QCOMPARE(qAlpha(own.pixel(point)), 0);
            QCOMPARE(composed.pixel(point), canvasGreen);
            ++sampledBars;
        }
        QCOMPARE(sampledBars, expectedPicture.size() == bounds.size() ? 0 : 2);
    }

    void removingTheImageLeavesTheViewTransparent()
    {
        OutputRenderer renderer;
        CanvasWidget canvas;
        canvas.resize(120, 80);
        auto* video = new VideoLayerWidget(&canvas);
        video->resize(120, 80);
        renderer.addDisplayLayer(video->displayLayer());
        renderer.enqueue(twoColourFrame(QSize(12, 8)));
        QCOMPARE(grabbed(*video).pixel(30, 40), red);

        renderer.reset(); // flush and remove image on every layer

        QVERIFY(video->pictureRect().isEmpty());
        const QImage own = grabbed(*video);
        for (const QPoint point : {QPoint(1, 1), QPoint(30, 40), QPoint(90, 40), QPoint(119, 79)})
            QCOMPARE(qAlpha(own.pixel(point)), 0);
        QCOMPARE(grabbed(canvas).pixel(30, 40), canvasGreen);
    }

    // Under a frame-rate cap a burst of frames waits for its turn and costs
    // one repaint, which shows the newest of them.
    void cappedRepaintsShowTheNewestFrame()
    {
        OutputRenderer renderer;
        CountingVideo video;
        video.resize(120, 80);
        video.setMaximumFrameRate(2);
        renderer.addDisplayLayer(video.displayLayer());
        video.show();
        QVERIFY(QTest::qWaitForWindowExposed(&video));
        renderer.enqueue(solidFrame(red));
        QTRY_VERIFY(video.paints > 0);
        QTest::qWait(20);
        const int before = video.paints;
        for (QRgb colour : {red, canvasGreen, red, canvasGreen, blue})
            renderer.enqueue(solidFrame(colour));
        for (int i = 0; i < 3; ++i)
            QCoreApplication::processEvents();
        QCOMPARE(video.paints, before);
        QTRY_COMPARE(video.paints, before + 1);
        QTest::qWait(100);
        QCOMPARE(video.paints, before + 1);
        QCOMPARE(grabbed(video).pixel(60, 40), blue);
    }

    // A frame that says what changed since the one on screen is redrawn only
    // there; after each frame the window's pixels must equal a fresh view's
    // whole redraw, but for the painter's rounding.
    // Noise makes any pixel the smooth scaling blends in but the redraw
    // missed show up.
    void partialRepaintsMatchWholeRepaints_data()
    {
        QTest::addColumn<QSize>("frameSize");
        QTest::addColumn<QSize>("viewSize");
        QTest::addColumn<bool>("chained");    // the change builds on the frame shown
        QTest::addColumn<bool>("wholeLines"); // the redraw spans whole lines of the view
        QTest::newRow("output window") << QSize(1920, 1080) << QSize(1766, 993) << true << false;
        QTest::newRow("scaled down") << QSize(1920, 1080) << QSize(640, 390) << true << true;
        QTest::newRow("preview-sized") << QSize(1920, 1080) << QSize(260, 146) << true << true;
        QTest::newRow("scaled up") << QSize(160, 90) << QSize(700, 400) << true << false;
        QTest::newRow("one to one") << QSize(300, 200) << QSize(300, 200) << true << false;
        QTest::newRow("not the frame shown")
            << QSize(640, 360) << QSize(320, 200) << false << false;
    }

    void partialRepaintsMatchWholeRepaints()
    {
        QFETCH(QSize, frameSize);
        QFETCH(QSize, viewSize);
        QFETCH(bool, chained);
        QFETCH(bool, wholeLines);
        CanvasWidget canvas;
        canvas.resize(viewSize);
        auto* video = new RegionRecordingVideo(&canvas);
        video->resize(viewSize);
        canvas.show();
        QVERIFY(QTest::qWaitForWindowExposed(&canvas));
        QImage* shown = static_cast<QImage*>(canvas.backingStore()->paintDevice());
        QCOMPARE(shown->size(), viewSize);

        QRandomGenerator random(7);
        QImage image(frameSize, QImage::Format_ARGB32_Premultiplied);
        paintNoise(&image, image.rect(), random);
        qint64 shownAt = 1;
        video->painted = QRegion();
        video->displayLayer()->enqueueSampleBuffer(
            SampleBuffer{image, true, std::nullopt, shownAt, std::nullopt, {}});
        const QRegion picture(video->pictureRect().toAlignedRect());
        QTRY_COMPARE(video->painted, picture);
        bool narrower = false; // some redraw left part of a line alone
        for (int step = 0; step < 8; ++step) {
            image = image.copy(); // the previous frame is still on screen
            QRegion changed;
            for (int i = 0; i < 3; ++i) {
                const QRect piece(random.bounded(frameSize.width()),
                                  random.bounded(frameSize.height()),
                                  1 + random.bounded(frameSize.width() / 4),
                                  1 + random.bounded(frameSize.height() / 4));
                paintNoise(&image, piece & image.rect(), random);
                changed += piece & image.rect();
            }
            SampleBuffer frame{image, true, std::nullopt, shownAt + 1, std::nullopt, {}};
            // A change against another frame than the one shown must not be
            // trusted: here it also leaves out most of what changed.
            frame.change = FrameChange{chained ? shownAt : shownAt - 1,
                                       chained ? changed : QRegion(0, 0, 1, 1)};
            shownAt = frame.presentationTimeNs;
            video->painted = QRegion();
            video->displayLayer()->enqueueSampleBuffer(frame);
            QTRY_VERIFY(!video->painted.isEmpty());
            QCOMPARE(video->painted != picture, chained);
            for (const QRect& rect : video->painted)
                narrower |= rect.width() < picture.boundingRect().width();
            // A fresh view given the frame whole: nothing kept from before.
            CanvasWidget fresh;
            fresh.resize(viewSize);
            VideoLayerWidget freshVideo(&fresh);
            freshVideo.resize(viewSize);
            freshVideo.displayLayer()->enqueueSampleBuffer(frame);
            const QImage whole = fresh.grab().toImage().convertToFormat(shown->format());
            const int difference = largestChannelDifference(*shown, whole);
            QVERIFY2(difference <= roundingSlack,
                     qPrintable(u"a partial redraw differs by %1 levels"_s.arg(difference)));
        }
        QCOMPARE(narrower, chained && !wholeLines);
    }

    void transparentFramePixelsShowTheCanvas()
    {
        CanvasWidget canvas;
        canvas.resize(100, 100);
        auto* video = new VideoLayerWidget(&canvas);
        video->resize(100, 100);
        QImage image(10, 10, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        image.setPixel(0, 0, red); // keeps the frame from being all clear
        video->displayLayer()->enqueueSampleBuffer(
            SampleBuffer{image, true, std::nullopt, 0, std::nullopt, {}});
        QCOMPARE(grabbed(canvas).pixel(50, 50), canvasGreen);
    }

    void undrawableFrameFailsUntilFlushedAndKeepsThePicture()
    {
        VideoLayerWidget video;
        video.resize(40, 40);
        DisplayLayer* layer = video.displayLayer();
        layer->enqueueSampleBuffer(twoColourFrame(QSize(4, 4)));
        QCOMPARE(layer->status(), DisplayLayerStatus::rendering);

        layer->enqueueSampleBuffer(SampleBuffer{QImage(), true, std::nullopt, 0, std::nullopt, {}});
        QCOMPARE(layer->status(), DisplayLayerStatus::failed);
        QCOMPARE(video.pictureRect(), QRectF(0, 0, 40, 40));

        layer->flush();
        QVERIFY(layer->status() != DisplayLayerStatus::failed);
        layer->enqueueSampleBuffer(twoColourFrame(QSize(4, 4)));
        QCOMPARE(layer->status(), DisplayLayerStatus::rendering);
    }

    void layerLeavesTheRendererWithItsWidget()
    {
        OutputRenderer renderer;
        auto video = std::make_unique<VideoLayerWidget>();
        renderer.addDisplayLayer(video->displayLayer());
        video.reset();
        renderer.enqueue(twoColourFrame(QSize(4, 4)));
        QVERIFY(renderer.displayLayers().isEmpty());
        QCOMPARE(renderer.hasDisplayedFrame(), false);
    }
};

QTEST_MAIN(TestVideoLayerWidget)
#include "tst_video_layer_widget.moc"
