#pragma once

// One running Vistrel per user. The first process holds a lock file in the
// user's runtime folder and listens on a local socket beside it; a later
// process finds the lock held, asks the first through the socket to show its
// control window, and ends. A lock left by a process that no longer runs (a
// crash) is taken over.
//
// Main thread only.

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>
#include <memory>

namespace vistrel {

class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Role {
        primary,   // this process is the one instance
        secondary, // another instance runs and was asked to show itself
        unchecked, // the runtime folder is unusable; runs without the guarantee
    };

    // What a later start asks of the running instance.
    enum class Request { show, panic };

    // folder: where the lock and socket live; empty means the runtime folder.
    explicit SingleInstance(const QString& folder = {}, QObject* parent = nullptr);
    ~SingleInstance() override;

    // As a secondary, passes `request` on to the primary.
    Role claim(Request request = Request::show);
    // Why the last claim was not primary.
    QString errorString() const { return m_error; }

Q_SIGNALS:
    // Another start of the program asked this instance to show itself.
    void reopenRequested();
    // Another start asked to blank the output ("vistrel --panic").
    void panicRequested();

private:
    bool listen();
    bool askPrimary(Request request);

    QString m_folder;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer m_server;
    QString m_error;
};

} // namespace vistrel
