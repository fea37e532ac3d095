#include "platform/x11/X11CaptureWorker.h"

#include "platform/x11/X11Compositor.h"
#include "platform/x11/X11DisplayGeometry.h"
#include "platform/x11/X11Extensions.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11WindowTree.h"
#include "platform/x11/XcbPtr.h"

#include <QLoggingCategory>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/xfixes.h>

using namespace Qt::StringLiterals;

namespace vistrel::x11 {

Q_LOGGING_CATEGORY(lcX11Capture, "quorbit.Vistrel.Capture")

namespace {

const QString errorDomain = u"vistrel.x11.capture"_s;

PlatformError captureError(int code, const QString& text)
{
    return PlatformError{errorDomain, code, text};
}

qint64 monotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

qint64 intervalNs(const MediaTime& interval)
{
    // At most 240 frames a second, whatever the configuration says.
    const double seconds = interval.seconds();
    return std::max<qint64>(qint64(seconds * 1e9), 1'000'000'000 / 240);
}

} // namespace

// Everything that lives on the worker thread, created and destroyed there.
class X11CaptureWorker::Session {
public:
    XcbConnection connection;
    const xcb_screen_t* screen = nullptr;
    X11Extensions extensions;
    X11RenderFormats formats;
    std::unique_ptr<X11WindowTree> tree;
    std::unique_ptr<X11Compositor> compositor;
    WindowAdmission admission; // holds the filter
    StreamConfiguration configuration;
    QRect display;

    // Which processes the rules name by identity follows every window the
    // tree knows, as it is now.
    void refreshAdmission()
    {
        admission.clearWindows();
        for (xcb_window_t id : tree->stacking()) {
            if (const TopLevel* w = tree->find(id); w && w->factsResolved)
                admission.noteWindow(w->facts);
        }
    }

    ~Session()
    {
        // Resources first, while the connection is still there, and the
        // requests that free them sent before it closes.
        compositor.reset();
        tree.reset();
        if (connection)
            xcb_flush(connection.get());
    }

    std::optional<PlatformError> open(const QByteArray& displayName)
    {
        int screenNumber = 0;
        connection.reset(
            xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), &screenNumber));
        if (!connection || xcb_connection_has_error(connection.get()))
            return captureError(1, u"Could not connect to the X display."_s);
        xcb_connection_t* c = connection.get();
        auto screens = xcb_setup_roots_iterator(xcb_get_setup(c));
        for (int i = 0; i < screenNumber && screens.rem; ++i)
            xcb_screen_next(&screens);
        if (!screens.rem)
            return captureError(1, u"The X display has no screen to capture."_s);
        screen = screens.data;

        auto checked = X11Extensions::check(c);
        if (auto* problem = std::get_if<QString>(&checked))
            return captureError(2, *problem);
        extensions = std::get<X11Extensions>(checked);
        if (!formats.load(c))
            return captureError(2, u"The X server offers no 32-bit picture format."_s);
        xcb_xfixes_select_cursor_input(c, screen->root,
                                       XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
        tree = std::make_unique<X11WindowTree>(c, screen->root, extensions, formats);
        if (!tree->initialize())
            return captureError(3, u"Could not redirect the windows of the X display."_s);
        compositor = std::make_unique<X11Compositor>(c, screen, formats);
        return reconfigure();
    }

    std::optional<PlatformError> reconfigure()
    {
        auto geometry = displayGeometry(connection.get(), screen, admission.filter().displayID);
        if (!geometry)
            return captureError(4, u"The display to capture is not connected."_s);
        display = *geometry;
        QRect area = display;
        if (configuration.sourceRect && configuration.sourceRect->isValid()) {
            const QRectF local = *configuration.sourceRect;
            area = QRectF(local.translated(display.topLeft())).toAlignedRect() & display;
            if (area.isEmpty())
                area = display;
        }
        QSize output(configuration.width, configuration.height);
        if (output.width() <= 0 || output.height() <= 0)
            output = area.size();
        if (!compositor->configure(area, output, std::max(configuration.queueDepth, 1), *tree))
            return captureError(5, u"The X server could not allocate the capture buffers."_s);
        return std::nullopt;
    }
};

X11CaptureWorker::X11CaptureWorker(QByteArray displayName, ContentFilter filter,
                                   StreamConfiguration configuration,
                                   std::weak_ptr<CaptureStreamDelegate> delegate)
    : m_displayName(std::move(displayName)), m_delegate(std::move(delegate)),
      m_filter(std::move(filter)), m_configuration(std::move(configuration))
{
    m_wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_wakeFd < 0)
        qCWarning(lcX11Capture,
                  "No wake-up descriptor (%s): settings and stop are noticed "
                  "within 50 ms instead of at once",
                  std::strerror(errno));
}

X11CaptureWorker::~X11CaptureWorker()
{
    stop();
    if (m_wakeFd >= 0)
        close(m_wakeFd);
}

void X11CaptureWorker::start(Started started)
{
    if (m_thread.joinable()) {
        if (!m_finished)
            return;
        m_thread.join();
    }
    m_stopRequested = false;
    m_finished = false;
    m_thread = std::thread([this, started = std::move(started)] {
        run(started);
        m_finished = true;
    });
}

void X11CaptureWorker::stop()
{
    if (!m_thread.joinable())
        return;
    m_stopRequested = true;
    wake();
    m_thread.join();
}

void X11CaptureWorker::wake()
{
    const quint64 one = 1;
    if (m_wakeFd >= 0)
        (void)!write(m_wakeFd, &one, sizeof one);
}

void X11CaptureWorker::setFilter(const ContentFilter& filter)
{
    {
        std::lock_guard lock(m_mutex);
        m_filter = filter;
        m_filterChanged = true;
    }
    wake();
}

void X11CaptureWorker::setConfiguration(const StreamConfiguration& configuration)
{
    {
        std::lock_guard lock(m_mutex);
        m_configuration = configuration;
        m_configurationChanged = true;
    }
    wake();
}

void X11CaptureWorker::run(Started started)
{
    Session session;
    {
        std::lock_guard lock(m_mutex);
        session.admission.setFilter(m_filter);
        session.configuration = m_configuration;
        m_filterChanged = m_configurationChanged = false;
    }
    if (auto error = session.open(m_displayName)) {
        qCCritical(lcX11Capture, "Capture stream could not start: %s",
                   qUtf8Printable(error->localizedDescription));
        started(error);
        return;
    }
    session.refreshAdmission();
    started(std::nullopt);

    xcb_connection_t* c = session.connection.get();
    X11WindowTree& tree = *session.tree;
    X11Compositor& compositor = *session.compositor;
    const quint8 cursorEvent = session.extensions.xfixesFirstEvent + XCB_XFIXES_CURSOR_NOTIFY;

    bool dirty = true;
    bool screenChanged = false;
    // Frames are paced by when they were started, so that the time spent
    // building one does not stretch the interval to the next.
    qint64 lastFrameStart = 0;
    qint64 lastPresented = 0; // the frame the next partial one builds on
    qint64 lastCursorPoll = 0;
    qint64 lastCursorMove = 0;
    xcb_flush(c);

    auto handle = [&](const xcb_generic_event_t* event) {
        const quint8 type = event->response_type & 0x7f;
        if (type == 0) {
            // A window vanished between our requests: expected, harmless.
            const auto* error = reinterpret_cast<const xcb_generic_error_t*>(event);
            qCDebug(lcX11Capture, "X error %d on request %d.%d ignored", error->error_code,
                    error->major_code, error->minor_code);
            return;
        }
        if (type == cursorEvent) {
            compositor.cursorImageChanged();
            dirty |= session.configuration.showsCursor;
            return;
        }
        if (type == XCB_CONFIGURE_NOTIFY &&
            reinterpret_cast<const xcb_configure_notify_event_t*>(event)->window ==
                session.screen->root) {
            screenChanged = true;
            return;
        }
        xcb_window_t window = XCB_WINDOW_NONE;
        const auto change = tree.handleEvent(event, &window);
        if (change == X11WindowTree::Change::none)
            return;
        // Only pure content changes may be composed in part: anything that
        // moves, restacks, reshapes or re-owns a window, admitted or not,
        // rebuilds the next frame whole.
        if (change == X11WindowTree::Change::structure)
            compositor.invalidate();
        const TopLevel* w = tree.find(window);
        if (!w) {
            dirty |= change == X11WindowTree::Change::structure;
            return;
        }
        if (w->factsResolved && change == X11WindowTree::Change::structure)
            session.admission.noteWindow(w->facts); // a new window can name its process
        const bool admitted = w->factsResolved && session.admission.admits(w->facts);
        // A window leaving the picture (unmapped, changed owner) needs a frame too.
        if (change == X11WindowTree::Change::structure)
            dirty |= admitted || w->drawn;
        else
            dirty |= admitted && w->mapped && w->outer.intersects(compositor.area());
    };

    while (!m_stopRequested) {
        // Settings from the main thread take effect on the next frame.
        {
            std::lock_guard lock(m_mutex);
            if (m_filterChanged) {
                const bool displayChanged =
                    session.admission.filter().displayID != m_filter.displayID;
                session.admission.setFilter(m_filter);
                session.refreshAdmission();
                m_filterChanged = false;
                m_configurationChanged |= displayChanged;
                compositor.invalidate();
                dirty = true;
            }
            if (m_configurationChanged) {
                session.configuration = m_configuration;
                m_configurationChanged = false;
                if (auto error = session.reconfigure()) {
                    if (auto delegate = m_delegate.lock())
                        delegate->streamDidStopWithError(*error);
                    return;
                }
                dirty = true;
            }
        }

        // Every pending event, before anything is drawn: a window's owner is
        // known before it can reach a frame.
        while (XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(c)})
            handle(event.get());
        if (screenChanged) {
            screenChanged = false;
            if (auto error = session.reconfigure()) {
                if (auto delegate = m_delegate.lock())
                    delegate->streamDidStopWithError(*error);
                return;
            }
            dirty = true;
        }
        if (xcb_connection_has_error(c)) {
            qCCritical(lcX11Capture, "Capture stream lost its X connection");
            if (auto delegate = m_delegate.lock())
                delegate->streamDidStopWithError(
                    captureError(6, u"The connection to the X display was lost."_s));
            return;
        }

        const qint64 interval = intervalNs(session.configuration.minimumFrameInterval);
        qint64 now = monotonicNs();
        // The pointer is looked for at the display's rate while it moves,
        // and ten times a second once it has been still for a second: a
        // still pointer would otherwise cost a round trip every frame.
        const qint64 cursorInterval = now - lastCursorMove >= 1'000'000'000
                                          ? std::max<qint64>(interval, 100'000'000)
                                          : interval;
        if (session.configuration.showsCursor && now - lastCursorPoll >= cursorInterval) {
            lastCursorPoll = now;
            if (compositor.pollCursor()) {
                dirty = true;
                lastCursorMove = now;
            }
        }

        qint64 timeoutNs = -1;
        if (dirty && now - lastFrameStart >= interval) {
            const qint64 frameStart = now;
            // The frame is built with the server held still: after the
            // round trip every event up to now is in our queue, and nobody
            // can map, reparent or paint between what we learn from them and
            // the composite. Without that a window could reach the picture
            // before its owner is known.
            xcb_grab_server(c);
            XcbReply<xcb_get_input_focus_reply_t>(
                xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
            while (XcbReply<xcb_generic_event_t> event{xcb_poll_for_queued_event(c)})
                handle(event.get());
            session.refreshAdmission();
            QImage image;
            std::optional<QRegion> changed;
            ServerFrame server;
            const auto status =
                compositor.render(tree, session.admission, QColor(0, 0, 0, 0),
                                  session.configuration.showsCursor, &image, &changed, &server);
            xcb_ungrab_server(c);
            xcb_flush(c);
            if (status == X11Compositor::Status::frame) {
                dirty = false;
                lastFrameStart = frameStart;
                const qint64 presented = monotonicNs();
                if (m_screenOutput) {
                    if (auto delegate = m_delegate.lock()) {
                        SampleBuffer buffer;
                        buffer.image = std::move(image);
                        buffer.dataReady = true;
                        buffer.frameStatus = qint64(FrameStatus::complete);
                        buffer.presentationTimeNs = presented;
                        buffer.server = server;
                        if (changed && lastPresented != 0)
                            buffer.change = FrameChange{lastPresented, std::move(*changed)};
                        delegate->streamDidOutputSampleBuffer(buffer, SampleOutputType::screen);
                    }
                }
                lastPresented = presented;
            } else {
                // Every buffer is still in flight, or the read failed (a
                // vanished window mid-frame): try again shortly.
                timeoutNs = 2'000'000;
            }
            now = monotonicNs();
        }
        // Waits are exact to the nanosecond: a wait rounded down to whole
        // milliseconds would spin through the last one before each frame.
        if (dirty && timeoutNs < 0)
            timeoutNs = std::max<qint64>(0, lastFrameStart + interval - now);
        if (session.configuration.showsCursor) {
            const qint64 poll = std::max<qint64>(1'000'000, lastCursorPoll + cursorInterval - now);
            timeoutNs = timeoutNs < 0 ? poll : std::min(timeoutNs, poll);
        }
        xcb_flush(c);
        // Events read while we waited for replies are already queued: the
        // socket will not wake us for them.
        bool handledQueued = false;
        while (XcbReply<xcb_generic_event_t> queued{xcb_poll_for_queued_event(c)}) {
            handle(queued.get());
            handledQueued = true;
        }
        if (handledQueued)
            continue;
        if (m_wakeFd < 0 && (timeoutNs < 0 || timeoutNs > 50'000'000))
            timeoutNs = 50'000'000; // nothing can wake us: look again soon
        pollfd fds[2] = {{xcb_get_file_descriptor(c), POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        const timespec timeout{time_t(timeoutNs / 1'000'000'000), long(timeoutNs % 1'000'000'000)};
        ::ppoll(fds, 2, timeoutNs < 0 ? nullptr : &timeout, nullptr);
        if (fds[1].revents & POLLIN) {
            quint64 drained = 0;
            (void)!read(m_wakeFd, &drained, sizeof drained);
        }
    }
}

} // namespace vistrel::x11
