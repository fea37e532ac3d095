#include "support_x11session.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

using namespace Qt::StringLiterals;

namespace vistrel::testsupport {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(10);
    }
    return true;
}

// ------------------------------------------------------------------ client

TestClient::~TestClient()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->closeWriteChannel(); // the client exits at end of input
        if (!m_process->waitForFinished(2000)) {
            m_process->kill();
            m_process->waitForFinished(2000);
        }
    }
}

std::optional<QString> TestClient::waitForLine(const QStringList& prefixes,
                                               std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    for (;;) {
        while (m_process->canReadLine())
            m_unread << QString::fromUtf8(m_process->readLine()).trimmed();
        for (qsizetype i = 0; i < m_unread.size(); ++i) {
            const QString line = m_unread.at(i);
            if (line.startsWith(u"error")) {
                m_unread.removeAt(i);
                m_lastError = line;
                return std::nullopt;
            }
            for (const QString& prefix : prefixes) {
                if (line.startsWith(prefix)) {
                    m_unread.removeAt(i);
                    return line;
                }
            }
        }
        if (deadline.hasExpired() || m_process->state() == QProcess::NotRunning) {
            m_lastError = u"no answer %1 from the client (stderr: %2)"_s.arg(
                prefixes.join(u'|'), QString::fromUtf8(m_process->readAllStandardError()));
            return std::nullopt;
        }
        m_process->waitForReadyRead(
            int(qMax<qint64>(1, qMin<qint64>(100, deadline.remainingTime()))));
    }
}

std::optional<QString> TestClient::command(const QString& line, const QStringList& answerPrefixes)
{
    m_process->write(line.toUtf8() + '\n');
    m_process->waitForBytesWritten(1000);
    return waitForLine(answerPrefixes, std::chrono::seconds(15));
}

static quint32 idOf(const std::optional<QString>& answer)
{
    if (!answer)
        return 0;
    bool ok = false;
    const quint32 id = answer->section(u' ', 2, 2).toUInt(&ok, 16);
    return ok ? id : 0;
}

quint32 TestClient::openWindow(const QString& name, const QString& colour, const QRect& geometry,
                               const QString& extra)
{
    const QString line = u"window %1 %2 %3 %4 %5 %6 %7"_s.arg(name, colour)
                             .arg(geometry.x())
                             .arg(geometry.y())
                             .arg(geometry.width())
                             .arg(geometry.height())
                             .arg(extra);
    return idOf(command(line, {u"mapped "_s + name + u' '}));
}

quint32 TestClient::openPopup(const QString& name, const QString& parent, const QString& colour,
                              const QRect& offsetAndSize)
{
    const QString line = u"popup %1 %2 %3 %4 %5 %6 %7"_s.arg(name, parent, colour)
                             .arg(offsetAndSize.x())
                             .arg(offsetAndSize.y())
                             .arg(offsetAndSize.width())
                             .arg(offsetAndSize.height());
    return idOf(command(line, {u"mapped "_s + name + u' '}));
}

// ----------------------------------------------------------------- session

X11TestSession::~X11TestSession()
{
    stop();
}

bool X11TestSession::start(const Options& options)
{
    m_script = qEnvironmentVariable("VISTREL_X11_SESSION");
    if (m_script.isEmpty()) {
        m_error = u"VISTREL_X11_SESSION is not set"_s;
        return false;
    }
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
    script.start(m_script, arguments);
    if (!script.waitForFinished(30000) || script.exitCode() != 0) {
        m_error = u"the X session did not start: %1"_s.arg(
            QString::fromUtf8(script.readAllStandardError()));
        script.kill();
        return false;
    }
    const QStringList lines = QString::fromUtf8(script.readAllStandardOutput()).split(u'\n');
    for (const QString& line : lines) {
        const QString key = line.section(u'=', 0, 0), value = line.section(u'=', 1);
        if (key == u"DISPLAY" || key == u"XDG_RUNTIME_DIR")
            qputenv(key.toLatin1().constData(), value.toUtf8());
        if (key == u"DISPLAY")
            m_displayName = value.toUtf8();
    }
    if (m_displayName.isEmpty()) {
        m_error = u"the X session script printed no DISPLAY"_s;
        return false;
    }
    return true;
}

void X11TestSession::stop()
{
    m_connection.reset();
    if (m_dir && !m_displayName.isEmpty()) {
        QProcess::execute(m_script, {u"stop"_s, u"--dir"_s, m_dir->path()});
        m_displayName.clear();
    }
}

xcb_connection_t* X11TestSession::connection()
{
    if (!m_connection && isRunning())
        m_connection.reset(xcb_connect(m_displayName.constData(), nullptr));
    return m_connection.get();
}

xcb_window_t X11TestSession::root()
{
    xcb_connection_t* c = connection();
    if (!c || xcb_connection_has_error(c))
        return 0;
    return xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
}

std::unique_ptr<TestClient> X11TestSession::spawnClient(const QString& wmClass,
                                                        const QStringList& extraArguments)
{
    const QString program = qEnvironmentVariable("VISTREL_TEST_CLIENT");
    if (program.isEmpty() || !isRunning()) {
        m_error = u"VISTREL_TEST_CLIENT is not set or no session runs"_s;
        return nullptr;
    }
    std::unique_ptr<TestClient> client(new TestClient);
    client->m_process = std::make_unique<QProcess>();
    client->m_process->start(program, QStringList{u"--class"_s, wmClass} + extraArguments);
    if (!client->m_process->waitForStarted(5000)) {
        m_error = u"the test client did not start"_s;
        return nullptr;
    }
    const auto ready = client->waitForLine({u"ready "_s}, std::chrono::seconds(15));
    if (!ready) {
        m_error = client->lastError();
        return nullptr;
    }
    client->m_pid = ready->section(u' ', 1, 1).toLongLong();
    return client;
}

std::optional<QRect> X11TestSession::rootGeometry(xcb_window_t window)
{
    xcb_connection_t* c = connection();
    if (!c)
        return std::nullopt;
    auto [geometry, e1] = x11::xcbReply(xcb_get_geometry_reply, c, xcb_get_geometry(c, window));
    auto [translated, e2] = x11::xcbReply(xcb_translate_coordinates_reply, c,
                                          xcb_translate_coordinates(c, window, root(), 0, 0));
    if (!geometry || !translated)
        return std::nullopt;
    return QRect(translated->dst_x, translated->dst_y, geometry->width, geometry->height);
}

QImage X11TestSession::grabRoot(const QRect& area)
{
    xcb_connection_t* c = connection();
    if (!c || area.isEmpty())
        return {};
    auto [image, error] = x11::xcbReply(
        xcb_get_image_reply, c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, root(), qint16(area.x()), qint16(area.y()),
                      quint16(area.width()), quint16(area.height()), ~0u));
    // Depth 24 on Xvfb comes as 32 bits per pixel, BGRX in memory = RGB32.
    if (!image || image->depth != 24 ||
        xcb_get_image_data_length(image.get()) < area.width() * area.height() * 4)
        return {};
    QImage copy(xcb_get_image_data(image.get()), area.width(), area.height(), area.width() * 4,
                QImage::Format_RGB32);
    return copy.copy();
}

} // namespace vistrel::testsupport
