#include "app/SingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QThread>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

Q_LOGGING_CATEGORY(lcInstance, "quorbit.Vistrel.App")

const QByteArray showRequest = "show\n";
const QByteArray panicRequest = "panic\n";
const QByteArray doneAnswer = "done\n";
// The first instance may still be starting when a second one asks.
constexpr int answerTimeoutMs = 5000;

} // namespace

SingleInstance::SingleInstance(const QString& folder, QObject* parent)
    : QObject(parent),
      m_folder(folder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation)
                                : folder)
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (!socket->canReadLine())
                    return;
                const QByteArray request = socket->readLine();
                if (request == showRequest || request == panicRequest) {
                    if (request == showRequest)
                        Q_EMIT reopenRequested();
                    else
                        Q_EMIT panicRequested();
                    socket->write(doneAnswer);
                }
                socket->disconnectFromServer();
            });
        }
    });
}

SingleInstance::~SingleInstance() = default;

SingleInstance::Role SingleInstance::claim(Request request)
{
    m_error.clear();
    if (m_folder.isEmpty() || !QDir().mkpath(m_folder)) {
        m_error = u"no runtime folder"_s;
        return Role::unchecked;
    }
    m_lock = std::make_unique<QLockFile>(QDir(m_folder).filePath(u"Vistrel.lock"_s));
    // Never stale by age: a long-running instance keeps its lock. A lock
    // whose process is gone is still recognised and taken over.
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(0))
        return listen() ? Role::primary : Role::unchecked;
    if (m_lock->error() != QLockFile::LockFailedError) {
        m_error = u"the lock file %1 cannot be written"_s.arg(m_lock->fileName());
        return Role::unchecked;
    }
    if (askPrimary(request))
        return Role::secondary;
    m_error = u"another instance holds %1 but does not answer"_s.arg(m_lock->fileName());
    return Role::secondary;
}

bool SingleInstance::listen()
{
    const QString path = QDir(m_folder).filePath(u"Vistrel.socket"_s);
    // We hold the lock, so a socket file left there belongs to a dead process.
    QLocalServer::removeServer(path);
    if (m_server.listen(path))
        return true;
    m_error = u"cannot listen on %1: %2"_s.arg(path, m_server.errorString());
    qCWarning(lcInstance, "Single instance: %s", qUtf8Printable(m_error));
    return false;
}

bool SingleInstance::askPrimary(Request request)
{
    const QString path = QDir(m_folder).filePath(u"Vistrel.socket"_s);
    const QDeadlineTimer deadline(answerTimeoutMs);
    while (!deadline.hasExpired()) {
        QLocalSocket socket;
        socket.connectToServer(path);
        if (socket.waitForConnected(int(deadline.remainingTime()))) {
            socket.write(request == Request::panic ? panicRequest : showRequest);
            socket.flush();
            while (!socket.canReadLine() &&
                   socket.waitForReadyRead(int(deadline.remainingTime()))) {
            }
            return socket.canReadLine() && socket.readLine() == doneAnswer;
        }
        QThread::msleep(50); // the first instance is not listening yet
    }
    return false;
}

} // namespace vistrel
