// Per-frame cost of the output path on the main thread.

#include "capture/CaptureEngine.h"
#include "capture/OutputRenderer.h"
#include "capture/StreamBridge.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimWorld.h"
#include "presentation/VideoLayerWidget.h"

#include <QApplication>
#include <QPainter>
#include <QThread>
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

// Everything between the frame leaving the worker and the pixels being in the
// two views' backing images: engine checks, renderer fan-out, both paints.
void BM_FrameToPixels(benchmark::State& state)
{
    const QSize viewSize(int(state.range(0)), int(state.range(0)) * 9 / 16);
    SimWorld world;
    SimCaptureBackend backend(world);
    SimScreenProvider screens;
    OutputRenderer renderer;
    CaptureEngine engine(renderer, backend, screens);
    engine.apply(plan());
    for (int i = 0; i < 8; ++i)
        QCoreApplication::processEvents();

    VideoLayerWidget output, preview;
    output.resize(viewSize);
    preview.resize(viewSize / 4);
    renderer.addDisplayLayer(output.displayLayer());
    renderer.addDisplayLayer(preview.displayLayer());
    QImage outputBacking(viewSize, QImage::Format_ARGB32_Premultiplied);
    QImage previewBacking(viewSize / 4, QImage::Format_ARGB32_Premultiplied);

    const QList<QImage> pool = framePool(QSize(1920, 1080));
    qsizetype next = 0;
    for (auto _ : state) {
        engine.handleSample(SampleBuffer{pool[next++ % pool.size()], true, 0, 0},
                            SampleOutputType::screen);
        output.render(&outputBacking, QPoint(), QRegion(), QWidget::DrawChildren);
        preview.render(&previewBacking, QPoint(), QRegion(), QWidget::DrawChildren);
        benchmark::DoNotOptimize(outputBacking.constBits());
    }
    // An engine that is not running drops every frame: nothing was measured.
    if (!renderer.hasDisplayedFrame())
        state.SkipWithError("the engine displayed no frame");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameToPixels)->Arg(960)->Arg(1920)->Unit(benchmark::kMicrosecond);

// The hand-off alone: frames posted by a worker thread through the bridge and
// delivered on the main thread, in batches as a busy stream would leave them.
void BM_BridgeHandOff(benchmark::State& state)
{
    SimWorld world;
    SimCaptureBackend backend(world);
    SimScreenProvider screens;
    OutputRenderer renderer;
    CaptureEngine engine(renderer, backend, screens);
    engine.apply(plan());
    for (int i = 0; i < 8; ++i)
        QCoreApplication::processEvents();
    auto bridge = std::make_shared<StreamBridge>(&engine);

    const QList<QImage> pool = framePool(QSize(64, 36));
    const int batch = int(state.range(0));
    for (auto _ : state) {
        QThread* worker = QThread::create([&] {
            for (int i = 0; i < batch; ++i)
                bridge->streamDidOutputSampleBuffer(SampleBuffer{pool[i % pool.size()], true, 0, i},
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
