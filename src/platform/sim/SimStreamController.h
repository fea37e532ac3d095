#pragma once

// The test-facing side of one scripted stream: its current filter,
// configuration and running state, and the levers a test pulls (push a frame,
// stop with an error). The stream object the capture engine owns shares it.
//
// Threading: the state setters and the levers are called on the main thread;
// frames and stop-with-error reach the delegate on the stream's own worker
// thread, in order. Destroying the controller stops and joins that thread.
// The world must outlive the controller.

#include "platform/CaptureStream.h"

#include <QImage>
#include <QMutex>
#include <QSet>
#include <QThread>
#include <atomic>
#include <memory>

namespace vistrel {

class SimWorld;

struct SimFrameRequest {
    // Absent: the frame carries no status attachment at all.
    std::optional<qint64> frameStatus = qint64(FrameStatus::complete);
    bool dataReady = true;
    SampleOutputType outputType = SampleOutputType::screen;
};

class SimStreamController {
public:
    SimStreamController(SimWorld& world, ContentFilter filter, StreamConfiguration configuration,
                        std::weak_ptr<CaptureStreamDelegate> delegate);
    ~SimStreamController();
    SimStreamController(const SimStreamController&) = delete;
    SimStreamController& operator=(const SimStreamController&) = delete;

    ContentFilter filter() const;
    StreamConfiguration configuration() const;
    bool isRunning() const { return m_running.load(); }
    QSet<SampleOutputType> outputs() const;

    // Composes a frame of the current scene on the worker thread and hands it
    // to the delegate. False (and nothing delivered) when the stream is not
    // running or the output type was never added.
    bool pushFrame(const SimFrameRequest& request = {});
    // The stream stops by itself and tells the delegate on the worker thread.
    void stopWithError(const PlatformError& error);
    // What a frame composed now would show.
    QImage composeNow() const;
    // Blocks until the worker has handled everything queued before the call.
    void waitForWorker();
    // Frames delivered to a live delegate so far.
    int deliveredFrames() const { return m_deliveredFrames.load(); }

    // Off by default so that tests stay deterministic.
    void setDeliversFrameOnStart(bool delivers) { m_framesOnStart = delivers; }
    bool deliversFrameOnStart() const { return m_framesOnStart; }
    // A free-running frame clock on the worker; 0 (the default) turns it off.
    void setFrameInterval(int milliseconds);

    // Used by the stream object when a platform call takes effect.
    void setRunning(bool running);
    void setFilter(const ContentFilter& filter);
    void setConfiguration(const StreamConfiguration& configuration);
    void addOutput(SampleOutputType type);

private:
    void deliverFrame(const SimFrameRequest& request);

    SimWorld& m_world;
    std::weak_ptr<CaptureStreamDelegate> m_delegate;
    mutable QMutex m_mutex;
    ContentFilter m_filter;
    StreamConfiguration m_configuration;
    QSet<SampleOutputType> m_outputs;
    std::atomic<bool> m_running = false;
    std::atomic<int> m_deliveredFrames = 0;
    bool m_framesOnStart = false;
    QThread m_thread;
    std::unique_ptr<QObject> m_worker; // lives on m_thread
};

} // namespace vistrel
