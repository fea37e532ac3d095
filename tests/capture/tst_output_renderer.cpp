#include "capture/OutputRenderer.h"
#include "capture/support_message_log.h"
#include "capture/support_recording_display_layer.h"

#include <QSignalSpy>
#include <QTest>
#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vistrel;
using vistrel::test::MessageLog;
using vistrel::test::RecordingDisplayLayer;

namespace {

SampleBuffer frame(QRgb color, qint64 time = 0)
{
    QImage image(4, 2, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return SampleBuffer{image, true, std::nullopt, time, std::nullopt, {}};
}

QList<DisplayLayer*> live(const QList<QPointer<DisplayLayer>>& entries)
{
    QList<DisplayLayer*> result;
    for (const QPointer<DisplayLayer>& entry : entries)
        result.append(entry.data()); // a dead entry shows up as nullptr
    return result;
}

using Operation = std::function<void(OutputRenderer&, DisplayLayer* spare)>;

} // namespace

Q_DECLARE_METATYPE(Operation)

class TestOutputRenderer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sameLayerTwiceKeepsOneEntryInRegistrationOrder()
    {
        OutputRenderer renderer;
        RecordingDisplayLayer first, second;
        renderer.addDisplayLayer(&first);
        renderer.addDisplayLayer(&second);
        renderer.addDisplayLayer(&first);
        QCOMPARE(live(renderer.displayLayers()), (QList<DisplayLayer*>{&second, &first}));

        renderer.enqueue(frame(qRgb(255, 0, 0)));
        QCOMPARE(first.frames.size(), 1);
        QCOMPARE(second.frames.size(), 1);

        renderer.removeDisplayLayer(&first);
        QCOMPARE(live(renderer.displayLayers()), (QList<DisplayLayer*>{&second}));

        // Every layer is set up for a letter-boxed, see-through picture.
        QVERIFY(second.gravity == VideoGravity::resizeAspect);
        QCOMPARE(second.backgroundColor.alpha(), 0);
        QCOMPARE(second.opaque, false);
    }

    void destroyedLayerIsPrunedByEveryOperation_data()
    {
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<int>("expectedEntries"); // live entries after the operation

        QTest::newRow("enqueue") << Operation([](OutputRenderer& r, DisplayLayer*) {
            r.enqueue(frame(qRgb(1, 2, 3)));
        }) << 2;
        QTest::newRow("reset") << Operation([](OutputRenderer& r, DisplayLayer*) { r.reset(); })
                               << 2;
        QTest::newRow("add") << Operation([](OutputRenderer& r, DisplayLayer* spare) {
            r.addDisplayLayer(spare);
        }) << 3;
        QTest::newRow("remove of another layer")
            << Operation(
                   [](OutputRenderer& r, DisplayLayer* spare) { r.removeDisplayLayer(spare); })
            << 2;
    }

    void destroyedLayerIsPrunedByEveryOperation()
    {
        QFETCH(Operation, operation);
        QFETCH(int, expectedEntries);

        OutputRenderer renderer;
        RecordingDisplayLayer first, last, spare;
        auto doomed = std::make_unique<RecordingDisplayLayer>();
        renderer.addDisplayLayer(&first);
        renderer.addDisplayLayer(doomed.get());
        renderer.addDisplayLayer(&last);
        doomed.reset(); // its view went away without unregistering
        QVERIFY(live(renderer.displayLayers()).contains(nullptr));

        operation(renderer, &spare);

        const QList<DisplayLayer*> entries = live(renderer.displayLayers());
        QVERIFY(!entries.contains(nullptr));
        QCOMPARE(entries.size(), expectedEntries);
        QCOMPARE(entries.mid(0, 2), (QList<DisplayLayer*>{&first, &last}));
    }

    // The displayed-frame flag: only a frame that reaches a live layer raises
    // it, and once; a reset drops it and clears every layer, and publishes
    // even when nothing was shown.
    void displayedFrameFollowsEnqueueAndReset()
    {
        OutputRenderer renderer;
        QSignalSpy spy(&renderer, &OutputRenderer::hasDisplayedFrameChanged);
        renderer.enqueue(frame(qRgb(255, 0, 0)));
        auto doomed = std::make_unique<RecordingDisplayLayer>();
        renderer.addDisplayLayer(doomed.get());
        doomed.reset(); // only dead layers left counts as no layer
        renderer.enqueue(frame(qRgb(255, 0, 0)));
        QCOMPARE(renderer.hasDisplayedFrame(), false);
        QCOMPARE(spy.size(), 0);

        RecordingDisplayLayer first, second;
        renderer.addDisplayLayer(&first);
        renderer.addDisplayLayer(&second);
        renderer.reset();
        QCOMPARE(spy.size(), 1);
        QCOMPARE(spy.at(0).at(0).toBool(), false);

        const SampleBuffer one = frame(qRgb(255, 0, 0), 1);
        const SampleBuffer two = frame(qRgb(0, 255, 0), 2);
        renderer.enqueue(one);
        renderer.enqueue(two);
        QCOMPARE(first.frames, (QList<SampleBuffer>{one, two}));
        QCOMPARE(second.frames, (QList<SampleBuffer>{one, two}));
        QCOMPARE(spy.size(), 2);
        QCOMPARE(spy.at(1).at(0).toBool(), true);
        QCOMPARE(renderer.property("hasDisplayedFrame").toBool(), true);

        renderer.reset();
        QCOMPARE(renderer.hasDisplayedFrame(), false);
        renderer.enqueue(frame(qRgb(0, 0, 255))); // raises the flag again
        QCOMPARE(renderer.hasDisplayedFrame(), true);
        QCOMPARE(spy.size(), 4);
        QCOMPARE(second.calls, (QStringList{u"flushAndRemoveImage"_s, u"enqueue"_s, u"enqueue"_s,
                                            u"flushAndRemoveImage"_s, u"enqueue"_s}));
    }

    void failedLayerIsFlushedBeforeEveryEnqueue()
    {
        OutputRenderer renderer;
        RecordingDisplayLayer failing, healthy;
        failing.reportedStatus = DisplayLayerStatus::failed;
        renderer.addDisplayLayer(&failing);
        renderer.addDisplayLayer(&healthy);

        MessageLog log;
        renderer.enqueue(frame(qRgb(255, 0, 0)));
        renderer.enqueue(frame(qRgb(0, 255, 0)));

        QCOMPARE(failing.calls, (QStringList{u"flush"_s, u"enqueue"_s, u"flush"_s, u"enqueue"_s}));
        QCOMPARE(healthy.calls, (QStringList{u"enqueue"_s, u"enqueue"_s}));
        const QString line = u"Display layer entered a failed state; flushing before enqueue."_s;
        QCOMPARE(log.texts(u"quorbit.Vistrel.Renderer"_s), (QStringList{line, line}));

        // Once the layer recovers, no more flushes and no more log lines.
        failing.reportedStatus = DisplayLayerStatus::rendering;
        renderer.enqueue(frame(qRgb(0, 0, 255)));
        QCOMPARE(failing.calls.last(), u"enqueue"_s);
        QCOMPARE(failing.calls.count(u"flush"_s), 2);
        QCOMPARE(log.texts(u"quorbit.Vistrel.Renderer"_s).size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestOutputRenderer)
#include "tst_output_renderer.moc"
