#include "platform/camera/TestPatternCamera.h"
#include "presentation/CameraPreviewView.h"

#include <QApplication>
#include <QPainter>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

// A frame source a test drives by hand; counts how often its picture is read.
class ManualFrameSource final : public CameraFrameSource {
public:
    QImage latestFrame() const override
    {
        ++reads;
        return frame;
    }
    void push(QImage image)
    {
        frame = std::move(image);
        Q_EMIT frameChanged();
    }

    QImage frame;
    mutable int reads = 0;
};

// The widget as it would be composited over other content: a transparent
// image with only what the widget paints itself.
QImage renderView(CameraPreviewView& view)
{
    QImage image(view.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    view.render(&image, QPoint(), QRegion(), QWidget::RenderFlags());
    return image;
}

bool isTransparent(const QImage& image, QPoint p)
{
    return qAlpha(image.pixel(p)) == 0;
}

bool hasColour(const QImage& image, QPoint p, const QColor& expected)
{
    const QRgb pixel = image.pixel(p);
    return qAlpha(pixel) == 255 && std::abs(qRed(pixel) - expected.red()) <= 3 &&
           std::abs(qGreen(pixel) - expected.green()) <= 3 &&
           std::abs(qBlue(pixel) - expected.blue()) <= 3;
}

QString describe(const QImage& image, QPoint p)
{
    return u"pixel at %1,%2 is #%3"_s.arg(p.x()).arg(p.y()).arg(image.pixel(p), 8, 16,
                                                                QLatin1Char('0'));
}

} // namespace

class CameraPreviewViewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Sample points with what each shape must show there: opaque picture or
    // nothing at all.
    void masks_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<CameraShape>("shape");
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<bool>("visible");

        const QSize box(100, 100);
        const QSize wide(200, 100); // a centred circle whose diameter is the height
        const auto row = [](const char* name, QSize size, CameraShape shape, QPoint point,
                            bool visible) {
            QTest::newRow(name) << size << shape << point << visible;
        };
        using enum CameraShape;
        row("circle: centre", box, circle, QPoint(50, 50), true);
        row("circle: corner", box, circle, QPoint(2, 2), false);
        row("circle: near corner", box, circle, QPoint(12, 12), false);
        row("circle: edge middle", box, circle, QPoint(2, 50), true);
        row("circle: bottom right", box, circle, QPoint(97, 97), false);
        row("wide circle: centre", wide, circle, QPoint(100, 50), true);
        row("wide circle: left of circle", wide, circle, QPoint(46, 50), false);
        row("wide circle: just inside left", wide, circle, QPoint(53, 50), true);
        row("wide circle: just inside right", wide, circle, QPoint(146, 50), true);
        row("wide circle: right of circle", wide, circle, QPoint(153, 50), false);
        row("wide circle: top centre", wide, circle, QPoint(100, 2), true);
        row("square: corner", box, square, QPoint(0, 0), true);
        row("square: far corner", box, square, QPoint(99, 99), true);
        // Corner radius 18 on 100 x 100: the corner's arc centre is (18, 18).
        row("rounded: corner", box, roundedSquare, QPoint(1, 1), false);
        row("rounded: outside the arc", box, roundedSquare, QPoint(4, 4), false);
        row("rounded: inside the arc", box, roundedSquare, QPoint(8, 8), true);
        row("rounded: far corner", box, roundedSquare, QPoint(98, 98), false);
        row("rounded: edge middle", box, roundedSquare, QPoint(0, 50), true);
        row("rounded: centre", box, roundedSquare, QPoint(50, 50), true);
    }

    void masks()
    {
        QFETCH(QSize, size);
        QFETCH(CameraShape, shape);
        QFETCH(QPoint, point);
        QFETCH(bool, visible);

        ManualFrameSource source;
        source.frame = QImage(640, 480, QImage::Format_RGB32);
        source.frame.fill(QColor(20, 160, 90));
        CameraPreviewView view;
        view.resize(size);
        view.setShape(shape);
        view.setSession(&source);
        const QImage image = renderView(view);
        if (visible) {
            QVERIFY2(hasColour(image, point, QColor(20, 160, 90)),
                     qPrintable(describe(image, point)));
        } else {
            QVERIFY2(isTransparent(image, point), qPrintable(describe(image, point)));
        }
    }

    // Camera pictures fill the bubble and are cropped, never letter-boxed;
    // the mask is centred on the longer side.
    void pictureFillsTheBubble()
    {
        // Wide picture: green | red | blue, the middle half red.
        ManualFrameSource source;
        source.frame = QImage(400, 100, QImage::Format_RGB32);
        {
            QPainter p(&source.frame);
            p.fillRect(0, 0, 100, 100, Qt::green);
            p.fillRect(100, 0, 200, 100, Qt::red);
            p.fillRect(300, 0, 100, 100, Qt::blue);
        }
        CameraPreviewView view;
        view.resize(100, 100);
        view.setShape(CameraShape::square);
        view.setSession(&source);
        const QImage image = renderView(view);
        for (const QPoint p : {QPoint(1, 50), QPoint(50, 1), QPoint(98, 50), QPoint(50, 98)})
            QVERIFY2(hasColour(image, p, Qt::red), qPrintable(describe(image, p)));
        QCOMPARE(CameraPreviewView::aspectFillRect(QSizeF(400, 100), QRectF(0, 0, 100, 100)),
                 QRectF(-150, 0, 400, 100));
        QCOMPARE(CameraPreviewView::aspectFillRect(QSizeF(640, 480), QRectF(0, 0, 100, 200)),
                 QRectF(-83.3333333333333, 0, 266.666666666667, 200));
        const auto maskPath = &CameraPreviewView::maskPath;
        QCOMPARE(maskPath(CameraShape::circle, QSizeF(300, 120)).boundingRect(),
                 QRectF(90, 0, 120, 120));
        QCOMPARE(maskPath(CameraShape::circle, QSizeF(80, 200)).boundingRect(),
                 QRectF(0, 60, 80, 80));
        QVERIFY(maskPath(CameraShape::square, QSizeF(0, 50)).isEmpty());
    }

    // The test camera's left colour shows on the right when mirrored.
    void mirroring()
    {
        TestPatternCameraPort port;
        auto session = port.createSession(CameraSessionPreset::medium);
        session->addInput(port.createInput(port.devices().first()).input);
        session->startRunning({});
        QTRY_VERIFY(!session->latestFrame().isNull());

        CameraPreviewView view;
        view.resize(120, 120);
        view.setShape(CameraShape::square);
        view.setSession(session.get());
        const QColor left = TestPatternCameraPort::leftColor(0);
        const QColor right = TestPatternCameraPort::rightColor(0);
        const QPoint leftPoint(20, 40), rightPoint(100, 40);
        for (const bool mirrored : {false, true}) {
            view.setMirrored(mirrored);
            const QImage image = renderView(view);
            QVERIFY2(hasColour(image, leftPoint, mirrored ? right : left),
                     qPrintable(describe(image, leftPoint)));
            QVERIFY2(hasColour(image, rightPoint, mirrored ? left : right),
                     qPrintable(describe(image, rightPoint)));
        }
    }

    // Several previews show one session and each follows new frames.
    // Handing a view its own session again neither re-reads the session nor
    // subscribes twice; changing only the mirroring or shape keeps it.
    void previewsShareOneSession()
    {
        ManualFrameSource source;
        CameraPreviewView first;
        CameraPreviewView second;
        first.resize(80, 80);
        second.resize(60, 40);
        first.setSession(&source);
        second.setSession(&source);
        QCOMPARE(source.reads, 2);
        first.setSession(&source);
        first.setMirrored(true);
        first.setShape(CameraShape::square);
        QCOMPARE(first.session(), &source);
        QCOMPARE(source.reads, 2);

        for (const QColor colour : {QColor(Qt::blue), QColor(Qt::yellow)}) {
            QImage picture(64, 48, QImage::Format_RGB32);
            picture.fill(colour);
            source.push(picture);
            QVERIFY(hasColour(renderView(first), QPoint(40, 40), colour));
            QVERIFY(hasColour(renderView(second), QPoint(30, 20), colour));
        }
        // One read per view for each of the two frames.
        QCOMPARE(source.reads, 6);
    }

    void emptyStates()
    {
        CameraPreviewView view;
        view.resize(60, 60);
        view.setShape(CameraShape::square);
        // No session: nothing at all.
        QImage image = renderView(view);
        QVERIFY(isTransparent(image, QPoint(30, 30)));

        // A session without a picture yet: a dark bubble.
        auto source = std::make_unique<ManualFrameSource>();
        view.setSession(source.get());
        image = renderView(view);
        QVERIFY2(hasColour(image, QPoint(30, 30), Qt::black),
                 qPrintable(describe(image, {30, 30})));

        // The session goes away: the last picture goes with it.
        QImage green(10, 10, QImage::Format_RGB32);
        green.fill(Qt::green);
        source->push(green);
        QVERIFY(hasColour(renderView(view), QPoint(30, 30), Qt::green));
        source.reset();
        QVERIFY(!view.session());
        QVERIFY(isTransparent(renderView(view), QPoint(30, 30)));

        // A stopped session drops its picture and the view follows.
        TestPatternCameraPort port;
        auto session = port.createSession(CameraSessionPreset::medium);
        session->addInput(port.createInput(port.devices().first()).input);
        session->startRunning({});
        view.setSession(session.get());
        QTRY_VERIFY(!session->latestFrame().isNull());
        QTRY_VERIFY(!hasColour(renderView(view), QPoint(30, 30), Qt::black));
        session->stopRunning();
        QVERIFY(hasColour(renderView(view), QPoint(30, 30), Qt::black));
        // The bubble never takes a click from what lies under it.
        QVERIFY(view.testAttribute(Qt::WA_TransparentForMouseEvents));
    }
};

QTEST_MAIN(CameraPreviewViewTest)
#include "tst_camera_preview_view.moc"
