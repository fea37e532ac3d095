#include "x11_harness.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel::x11test {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(5);
    }
    return true;
}

// ------------------------------------------------------------------ client

TestClient::~TestClient()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.closeWriteChannel(); // the client exits at end of input
        if (!m_process.waitForFinished(2000)) {
            m_process.kill();
            m_process.waitForFinished(2000);
        }
    }
}

std::optional<QString> TestClient::command(const QString& line, const QString& answer)
{
    if (!line.isEmpty()) {
        m_process.write(line.toUtf8() + '\n');
        m_process.waitForBytesWritten(1000);
    }
    // Answers to commands sent without waiting may come first; an error
    // answers the command just sent (errors are immediate).
    QDeadlineTimer deadline(std::chrono::seconds(15));
    for (;;) {
        while (m_process.canReadLine())
            m_unread << QString::fromUtf8(m_process.readLine()).trimmed();
        for (qsizetype i = 0; i < m_unread.size(); ++i) {
            const QString found = m_unread.at(i);
            if (found.startsWith(answer) || found.startsWith(u"error")) {
                m_unread.removeAt(i);
                if (found.startsWith(answer))
                    return found;
                m_lastError = found;
                return std::nullopt;
            }
        }
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning) {
            m_lastError = u"no answer \"%1\" from the client (stderr: %2)"_s.arg(
                answer, QString::fromUtf8(m_process.readAllStandardError()));
            return std::nullopt;
        }
        m_process.waitForReadyRead(int(std::clamp<qint64>(deadline.remainingTime(), 1, 100)));
    }
}

quint32 TestClient::open(const QString& verb, quint32 rgb, const QRect& g, const QString& options,
                         bool wait)
{
    const QString name = u"w%1"_s.arg(++m_opened);
    const QString line = u"%1 %2 %3 %4 %5 %6 %7 %8"_s.arg(
        verb, name, u"%1"_s.arg(rgb, 6, 16, QChar(u'0')), QString::number(g.x()),
        QString::number(g.y()), QString::number(g.width()), QString::number(g.height()), options);
    if (!wait) {
        m_process.write(line.toUtf8() + '\n');
        return 0;
    }
    const auto answer = command(line, u"mapped "_s + name + u' ');
    const quint32 id = answer ? answer->section(u' ', 2, 2).toUInt(nullptr, 16) : 0;
    if (id)
        m_names.insert(id, name);
    return id;
}

quint32 TestClient::window(quint32 rgb, const QRect& geometry, const QString& options, bool wait)
{
    return open(u"window"_s, rgb, geometry, options, wait);
}

quint32 TestClient::popup(quint32 rgb, const QRect& geometry, const QString& options)
{
    return open(u"popup"_s, rgb, geometry, options, true);
}

bool TestClient::on(const QString& verb, quint32 window, const QString& arguments)
{
    const QString name = m_names.value(window);
    if (name.isEmpty()) {
        m_lastError = u"no window 0x%1 of this client"_s.arg(window, 0, 16);
        return false;
    }
    const QString answer = verb == u"map"     ? u"mapped "_s
                           : verb == u"unmap" ? u"unmapped "_s
                                              : u"ok "_s;
    if (verb == u"close")
        m_names.remove(window);
    return bool(command(u"%1 %2 %3"_s.arg(verb, name, arguments), answer + name + u' '));
}

bool TestClient::colour(quint32 window, quint32 rgb)
{
    return on(u"color"_s, window, u"%1"_s.arg(rgb, 6, 16, QChar(u'0')));
}

// ----------------------------------------------------------------- session

X11TestSession::~X11TestSession()
{
    stop();
}

bool X11TestSession::start(const Options& options)
{
    m_dir = std::make_unique<QTemporaryDir>();
    QProcess script;
    QStringList arguments{
        u"start"_s,
        u"--dir"_s,
        m_dir->path(),
        u"--size"_s,
        u"%1x%2"_s.arg(options.monitorSize.width()).arg(options.monitorSize.height()),
        u"--monitors"_s,
        QString::number(options.monitors)};
    if (!options.windowManager)
        arguments << u"--no-wm"_s;
    script.start(QStringLiteral(VISTREL_X11_SESSION), arguments);
    if (!script.waitForFinished(60000) || script.exitCode() != 0) {
        m_error = u"the X session did not start: %1"_s.arg(
            QString::fromUtf8(script.readAllStandardError()));
        script.kill();
        script.waitForFinished(1000);
        return false;
    }
    m_environment = QProcessEnvironment::systemEnvironment();
    for (const QString& line : QString::fromUtf8(script.readAllStandardOutput()).split(u'\n')) {
        const QString key = line.section(u'=', 0, 0), value = line.section(u'=', 1);
        if (key == u"DISPLAY" || key == u"XDG_RUNTIME_DIR")
            m_environment.insert(key, value);
        if (key == u"DISPLAY")
            m_displayName = value.toUtf8();
    }
    m_connection.reset(xcb_connect(m_displayName.constData(), nullptr));
    if (m_displayName.isEmpty() || xcb_connection_has_error(m_connection.get())) {
        m_error = u"no connection to the X session \"%1\""_s.arg(QString::fromUtf8(m_displayName));
        return false;
    }
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection.get())).data->root;
    setDesktopColour(options.desktop);
    return true;
}

void X11TestSession::stop()
{
    m_connection.reset();
    if (m_dir && !m_displayName.isEmpty())
        QProcess::execute(QStringLiteral(VISTREL_X11_SESSION),
                          {u"stop"_s, u"--dir"_s, m_dir->path()});
    m_displayName.clear();
}

void X11TestSession::exportEnvironment() const
{
    for (const char* key : {"DISPLAY", "XDG_RUNTIME_DIR"})
        qputenv(key, m_environment.value(QString::fromLatin1(key)).toUtf8());
}

xcb_atom_t X11TestSession::atom(const char* name) const
{
    xcb_connection_t* c = connection();
    auto [reply, error] =
        x11::xcbReply(xcb_intern_atom_reply, c, xcb_intern_atom(c, 0, quint16(strlen(name)), name));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

std::unique_ptr<TestClient> X11TestSession::spawnClient(const QString& wmClass)
{
    std::unique_ptr<TestClient> client(new TestClient);
    client->m_process.setProcessEnvironment(m_environment);
    client->m_process.start(QStringLiteral(VISTREL_TEST_CLIENT), {u"--class"_s, wmClass});
    const auto ready = client->command({}, u"ready "_s);
    if (!ready) {
        m_error = client->lastError();
        return nullptr;
    }
    client->m_pid = ready->section(u' ', 1, 1).toInt();
    return client;
}

void X11TestSession::requestClose(xcb_window_t window)
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom("_NET_CLOSE_WINDOW");
    event.data.data32[0] = XCB_CURRENT_TIME;
    event.data.data32[1] = 2; // from a pager: the user's own request
    xcb_send_event(connection(), 0, m_root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(connection());
}

void X11TestSession::setDesktopColour(quint32 rgb)
{
    xcb_change_window_attributes(connection(), m_root, XCB_CW_BACK_PIXEL, &rgb);
    xcb_clear_area(connection(), 0, m_root, 0, 0, 0, 0);
    xcb_flush(connection());
}

void X11TestSession::warpPointer(int x, int y)
{
    xcb_warp_pointer(connection(), XCB_NONE, m_root, 0, 0, 0, 0, qint16(x), qint16(y));
    xcb_flush(connection());
}

std::optional<QRect> X11TestSession::rootGeometry(xcb_window_t window) const
{
    xcb_connection_t* c = connection();
    auto [geometry, e1] = x11::xcbReply(xcb_get_geometry_reply, c, xcb_get_geometry(c, window));
    auto [translated, e2] = x11::xcbReply(xcb_translate_coordinates_reply, c,
                                          xcb_translate_coordinates(c, window, m_root, 0, 0));
    if (!geometry || !translated)
        return std::nullopt;
    return QRect(translated->dst_x, translated->dst_y, geometry->width, geometry->height);
}

namespace {

QImage grabDrawable(xcb_connection_t* c, xcb_drawable_t drawable, const QRect& area)
{
    auto [image, error] = x11::xcbReply(
        xcb_get_image_reply, c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, qint16(area.x()), qint16(area.y()),
                      quint16(area.width()), quint16(area.height()), ~0u));
    // Depth 24 (and 32) on Xvfb comes as 32 bits per pixel, BGRX in memory.
    if (!image || (image->depth != 24 && image->depth != 32) ||
        xcb_get_image_data_length(image.get()) < area.width() * area.height() * 4)
        return {};
    return QImage(xcb_get_image_data(image.get()), area.width(), area.height(), area.width() * 4,
                  QImage::Format_RGB32)
        .copy();
}

} // namespace

QImage X11TestSession::grabWindow(xcb_window_t window) const
{
    const auto geometry = rootGeometry(window);
    return geometry ? grabDrawable(connection(), window, QRect(QPoint(), geometry->size()))
                    : QImage();
}

bool X11TestSession::isMapped(xcb_window_t window) const
{
    xcb_connection_t* c = connection();
    auto [attributes, error] =
        x11::xcbReply(xcb_get_window_attributes_reply, c, xcb_get_window_attributes(c, window));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

QList<QRect> X11TestSession::popups(qint64 pid) const
{
    xcb_connection_t* c = connection();
    QList<QRect> result;
    auto [tree, error] = x11::xcbReply(xcb_query_tree_reply, c, xcb_query_tree(c, m_root));
    if (!tree)
        return result;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        auto [attributes, e1] = x11::xcbReply(xcb_get_window_attributes_reply, c,
                                              xcb_get_window_attributes(c, children[i]));
        if (!attributes || !attributes->override_redirect ||
            attributes->map_state != XCB_MAP_STATE_VIEWABLE)
            continue;
        auto [owner, e2] = x11::xcbReply(
            xcb_get_property_reply, c,
            xcb_get_property(c, 0, children[i], atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 0, 1));
        if (!owner || xcb_get_property_value_length(owner.get()) != 4 ||
            *static_cast<const quint32*>(xcb_get_property_value(owner.get())) != quint32(pid))
            continue;
        if (const auto geometry = rootGeometry(children[i]))
            result.append(*geometry);
    }
    return result;
}

bool X11TestSession::hasState(xcb_window_t window, const char* state) const
{
    xcb_connection_t* c = connection();
    auto [reply, error] =
        x11::xcbReply(xcb_get_property_reply, c,
                      xcb_get_property(c, 0, window, atom("_NET_WM_STATE"), XCB_ATOM_ATOM, 0, 64));
    if (!reply || reply->format != 32)
        return false;
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get()));
    const int count = xcb_get_property_value_length(reply.get()) / 4;
    return std::find(atoms, atoms + count, atom(state)) != atoms + count;
}

bool X11TestSession::xdotool(const QStringList& arguments) const
{
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.start(u"xdotool"_s, arguments);
    return process.waitForFinished(15000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

// -------------------------------------------------------------- frame sink

void FrameSink::streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type)
{
    std::lock_guard lock(m_mutex);
    ++m_frames;
    if (type != SampleOutputType::screen || !buffer.dataReady ||
        buffer.frameStatus != qint64(FrameStatus::complete) ||
        buffer.image.format() != QImage::Format_ARGB32_Premultiplied ||
        buffer.presentationTimeNs <= m_lastTime)
        ++m_malformed;
    m_lastTime = buffer.presentationTimeNs;
    if (m_check)
        m_check(buffer.image);
    m_last = buffer.image.copy(); // the pool buffer goes back at once
}

void FrameSink::streamDidStopWithError(const PlatformError& error)
{
    std::lock_guard lock(m_mutex);
    m_stopError = error.localizedDescription;
}

bool FrameSink::waitForFrame(const std::function<bool(const QImage&)>& test) const
{
    return waitUntil([&] {
        const QImage image = last();
        return !image.isNull() && test(image);
    });
}

std::optional<PlatformError> startStream(CaptureStream& stream)
{
    if (auto error = stream.addStreamOutput(SampleOutputType::screen))
        return error;
    std::optional<std::optional<PlatformError>> result;
    stream.startCapture([&](std::optional<PlatformError> error) { result = error; });
    if (!waitUntil([&] { return result.has_value(); }))
        return PlatformError{u"test"_s, -1, u"start did not complete"_s};
    return *result;
}

int countColour(const QImage& image, quint32 rgb)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x)
            n += (line[x] & 0xffffff) == rgb && qAlpha(line[x]) == 255;
    }
    return n;
}

} // namespace vistrel::x11test
