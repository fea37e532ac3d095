#include "capture/OutputRenderer.h"

#include <QLoggingCategory>

namespace vistrel {

namespace {
Q_LOGGING_CATEGORY(lcRenderer, "quorbit.Vistrel.Renderer")
} // namespace

OutputRenderer::OutputRenderer(VideoPlaneFactory* videoPlanes, QObject* parent)
    : QObject(parent), m_videoPlanes(videoPlanes)
{
}

OutputRenderer::~OutputRenderer() = default;

void OutputRenderer::prune()
{
    m_displayLayers.removeIf([](const WeakDisplayLayer& entry) { return entry.layer.isNull(); });
}

void OutputRenderer::removeEntries(const DisplayLayer* layer)
{
    m_displayLayers.removeIf([layer](const WeakDisplayLayer& entry) {
        return entry.layer.isNull() || entry.layer.data() == layer;
    });
}

void OutputRenderer::addDisplayLayer(DisplayLayer* layer)
{
    removeEntries(layer);
    if (!layer)
        return;
    m_displayLayers.append(WeakDisplayLayer{layer});
    layer->setVideoGravity(VideoGravity::resizeAspect);
    layer->setBackgroundColor(Qt::transparent);
    layer->setOpaque(false);
}

void OutputRenderer::removeDisplayLayer(DisplayLayer* layer)
{
    removeEntries(layer);
}

void OutputRenderer::enqueue(const SampleBuffer& buffer)
{
    prune();
    if (m_displayLayers.isEmpty())
        return;

    // Copy the pointers first: a layer may be destroyed by what its view does
    // on enqueue, and the list must not change under the loop.
    const QList<WeakDisplayLayer> entries = m_displayLayers;
    for (const WeakDisplayLayer& entry : entries) {
        DisplayLayer* layer = entry.layer.data();
        if (!layer)
            continue;
        if (layer->status() == DisplayLayerStatus::failed) {
            qCCritical(lcRenderer,
                       "Display layer entered a failed state; flushing before enqueue.");
            layer->flush();
        }
        if (entry.layer)
            entry.layer->enqueueSampleBuffer(buffer);
    }

    if (!m_hasDisplayedFrame) {
        m_hasDisplayedFrame = true;
        Q_EMIT hasDisplayedFrameChanged(true);
    }
}

void OutputRenderer::reset()
{
    m_hasDisplayedFrame = false;
    Q_EMIT hasDisplayedFrameChanged(false);

    prune();
    const QList<WeakDisplayLayer> entries = m_displayLayers;
    for (const WeakDisplayLayer& entry : entries) {
        if (entry.layer)
            entry.layer->flushAndRemoveImage();
    }
}

QList<QPointer<DisplayLayer>> OutputRenderer::displayLayers() const
{
    QList<QPointer<DisplayLayer>> layers;
    layers.reserve(m_displayLayers.size());
    for (const WeakDisplayLayer& entry : m_displayLayers)
        layers.append(entry.layer);
    return layers;
}

} // namespace vistrel
