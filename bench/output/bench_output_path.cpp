// Per-frame cost of the output path on the main thread.

#include "capture/CaptureEngine.h"
#include "capture/OutputRenderer.h"
#include "capture/StreamBridge.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimWorld.h"
#include "presentation/VideoLayerWidget.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
#include <QThread>
#include <QTimer>
#include <benchmark/benchmark.h>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr quint32 displayId = 1;

// A few distinct 1080p frames, as a stream's buffer pool would cycle them.
QList<QImage> framePool(QSize size)
{
    QList<QImage> pool;
    for (int i = 0; i < 4; ++i) {
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(QColor::fromHsv(i * 60, 200, 200));
        QPainter(&image).fillRect(QRect(100, 100, 400, 300), Qt::transparent);
        pool.append(image);
    }
    return pool;
}

CapturePlan plan()
{
    CapturePlan result;
    result.filter.displayID = displayId;
    result.display = ShareableDisplay{displayId, u"Bench"_s, QRectF(0, 0, 1920, 1080),
                                      QSizeF(1920, 1080), QSizeF(1920, 1080)};
    result.signature = u"bench"_s;
    result.sourceRect = QRectF(0, 0, 1920, 1080);
    result.canvasLogicalSize = QSizeF(1920, 1080);
    return result;
}

// A capture engine running the bench plan on the scripted backend.
struct RunningEngine {
    SimWorld world;
    SimCaptureBackend backend{world};
    SimScreenProvider screens;
    OutputRenderer renderer;
    CaptureEngine engine{renderer, backend, screens};

    RunningEngine()
    {
        engine.apply(plan());
        for (int i = 0; i < 8; ++i)
            QCoreApplication::processEvents();
    }
};

// Everything between the frame leaving the worker and the pixels being in the
// views' backing images: engine checks, renderer fan-out, the output view's
// paint (width given) and, with the second argument 1, the preview panel's
// (520 x 293, as above a 520-wide control window).
void BM_FrameToPixels(benchmark::State& state)
{
    const QSize viewSize(int(state.range(0)), int(state.range(0)) * 9 / 16);
    const bool withPreview = state.range(1) != 0;
    RunningEngine pipeline;
    OutputRenderer& renderer = pipeline.renderer;
    CaptureEngine& engine = pipeline.engine;

    VideoLayerWidget output, preview;
    output.resize(viewSize);
    preview.resize(520, 293);
    renderer.addDisplayLayer(output.displayLayer());
    if (withPreview)
        renderer.addDisplayLayer(preview.displayLayer());
    QImage outputBacking(viewSize, QImage::Format_ARGB32_Premultiplied);
    QImage previewBacking(preview.size(), QImage::Format_ARGB32_Premultiplied);

    const QList<QImage> pool = framePool(QSize(1920, 1080));
    qsizetype next = 0;
    for (auto _ : state) {
        engine.handleSample(SampleBuffer{pool[next++ % pool.size()], true, 0, 0, std::nullopt, {}},
                            SampleOutputType::screen);
        output.render(&outputBacking, QPoint(), QRegion(), QWidget::DrawChildren);
        if (withPreview)
            preview.render(&previewBacking, QPoint(), QRegion(), QWidget::DrawChildren);
        benchmark::DoNotOptimize(outputBacking.constBits());
    }
    // An engine that is not running drops every frame: nothing was measured.
    if (!renderer.hasDisplayedFrame())
        state.SkipWithError("the engine displayed no frame");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameToPixels)
    ->Args({1280, 0})
    ->Args({1280, 1})
    ->Args({1920, 0})
    ->Args({1920, 1})
    ->Unit(benchmark::kMicrosecond);

// A paced stream as the user runs it: 1080p frames at 60 fps into the output
// view (1280 x 720) and, with the argument 1, the preview panel's view
// (520 x 293, at most 20 repaints a second), both shown and painted by Qt's
// event loop into their backing stores. Process CPU time per frame.
void BM_PacedFrames(benchmark::State& state)
{
    const bool withPreview = state.range(0) != 0;
    RunningEngine pipeline;
    OutputRenderer& renderer = pipeline.renderer;
    CaptureEngine& engine = pipeline.engine;

    VideoLayerWidget output, preview;
    output.resize(1280, 720);
    output.show();
    renderer.addDisplayLayer(output.displayLayer());
    preview.resize(520, 293);
    preview.setMaximumFrameRate(20);
    if (withPreview) {
        preview.show();
        renderer.addDisplayLayer(preview.displayLayer());
    }
    const QList<QImage> pool = framePool(QSize(1920, 1080));
    qsizetype next = 0;
    QElapsedTimer clock;
    clock.start();
    qint64 due = 0;
    for (auto _ : state) {
        due += 1000 / 60;
        engine.handleSample(SampleBuffer{pool[next++ % pool.size()], true, 0, 0, std::nullopt, {}},
                            SampleOutputType::screen);
        // The rest of the frame's time in the event loop, asleep when idle.
        QEventLoop loop;
        QTimer::singleShot(int(std::max<qint64>(due - clock.elapsed(), 0)), &loop,
                           &QEventLoop::quit);
        loop.exec();
    }
    if (!renderer.hasDisplayedFrame())
        state.SkipWithError("the engine displayed no frame");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PacedFrames)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(180)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

// The hand-off alone: frames posted by a worker thread through the bridge and
// delivered on the main thread, in batches as a busy stream would leave them.
void BM_BridgeHandOff(benchmark::State& state)
{
    RunningEngine pipeline;
    CaptureEngine& engine = pipeline.engine;
    auto bridge = std::make_shared<StreamBridge>(&engine);

    const QList<QImage> pool = framePool(QSize(64, 36));
    const int batch = int(state.range(0));
    for (auto _ : state) {
        QThread* worker = QThread::create([&] {
            for (int i = 0; i < batch; ++i)
                bridge->streamDidOutputSampleBuffer(
                    SampleBuffer{pool[i % pool.size()], true, 0, i, std::nullopt, {}},
                    SampleOutputType::screen);
        });
        worker->start();
        worker->wait();
        delete worker;
        QCoreApplication::processEvents();
    }
    // Frames reach the engine's checks only while its stream runs.
    if (engine.streamStatus().kind() != StreamStatus::Kind::running)
        state.SkipWithError("the engine's stream is not running");
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(BM_BridgeHandOff)->Arg(60)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
