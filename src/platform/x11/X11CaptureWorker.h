#pragma once

// The thread behind an X11CaptureStream: its own XCB connection, the window
// tree, the compositor and the frame pacing.
//
// Threading: the public methods are called on the main thread; the started
// callback, frames and stop-with-error run on the worker thread.

#include "platform/CaptureStream.h"

#include <QByteArray>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace vistrel::x11 {

class X11CaptureWorker {
public:
    using Started = std::function<void(std::optional<PlatformError>)>;

    X11CaptureWorker(QByteArray displayName, ContentFilter filter,
                     StreamConfiguration configuration,
                     std::weak_ptr<CaptureStreamDelegate> delegate);
    ~X11CaptureWorker();
    X11CaptureWorker(const X11CaptureWorker&) = delete;
    X11CaptureWorker& operator=(const X11CaptureWorker&) = delete;

    void enableScreenOutput() { m_screenOutput = true; }
    bool isRunning() const { return m_thread.joinable() && !m_finished; }
    // Starts the thread; `started` runs on it once the connection and the
    // compositor are ready, or with the reason they are not.
    void start(Started started);
    // Joins the thread; no frame is delivered after it returns.
    void stop();
    void setFilter(const ContentFilter& filter);
    void setConfiguration(const StreamConfiguration& configuration);

private:
    class Session;

    void run(Started started);
    void wake();

    const QByteArray m_displayName;
    const std::weak_ptr<CaptureStreamDelegate> m_delegate;
    std::atomic<bool> m_screenOutput{false};
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_finished{false};
    int m_wakeFd = -1;
    std::thread m_thread;

    std::mutex m_mutex; // guards the pending settings below
    ContentFilter m_filter;
    StreamConfiguration m_configuration;
    bool m_filterChanged = false;
    bool m_configurationChanged = false;
};

} // namespace vistrel::x11
