#pragma once

// A display layer that records what it is asked to do, for tests of the code
// that feeds layers.

#include "capture/DisplayLayer.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace vistrel::test {

class RecordingDisplayLayer final : public DisplayLayer {
public:
    using DisplayLayer::DisplayLayer;

    DisplayLayerStatus status() const override { return reportedStatus; }
    void flush() override { calls.append(QStringLiteral("flush")); }
    void enqueueSampleBuffer(const SampleBuffer& buffer) override
    {
        calls.append(QStringLiteral("enqueue"));
        frames.append(buffer);
    }
    void flushAndRemoveImage() override { calls.append(QStringLiteral("flushAndRemoveImage")); }
    void setVideoGravity(VideoGravity value) override { gravity = value; }
    void setBackgroundColor(const QColor& value) override { backgroundColor = value; }
    void setOpaque(bool value) override { opaque = value; }

    // What status() answers; a real layer leaves the failed state on flush,
    // this one stays wherever the test puts it.
    DisplayLayerStatus reportedStatus = DisplayLayerStatus::unknown;
    QStringList calls;
    QList<SampleBuffer> frames;
    std::optional<VideoGravity> gravity;
    QColor backgroundColor = Qt::magenta;
    bool opaque = true;
};

} // namespace vistrel::test
