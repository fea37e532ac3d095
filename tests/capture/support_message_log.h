#pragma once

// Collects the log messages emitted while it exists, with their category, so a
// test can check that a line went to the right channel at the right level.

#include <QList>
#include <QString>
#include <QtGlobal>

namespace vistrel::test {

struct LoggedMessage {
    QtMsgType type;
    QString category;
    QString text;
    friend bool operator==(const LoggedMessage&, const LoggedMessage&) = default;
};

class MessageLog {
public:
    MessageLog() : m_previous(qInstallMessageHandler(&MessageLog::handle)) { current() = this; }
    ~MessageLog()
    {
        qInstallMessageHandler(m_previous);
        current() = nullptr;
    }
    MessageLog(const MessageLog&) = delete;
    MessageLog& operator=(const MessageLog&) = delete;

    QList<LoggedMessage> messages;

    // The texts logged to one category at one level, in order.
    QStringList texts(const QString& category, QtMsgType type = QtCriticalMsg) const
    {
        QStringList result;
        for (const LoggedMessage& message : messages) {
            if (message.category == category && message.type == type)
                result.append(message.text);
        }
        return result;
    }

private:
    static MessageLog*& current()
    {
        static MessageLog* log = nullptr;
        return log;
    }
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (MessageLog* log = current())
            log->messages.append(
                {type, QString::fromUtf8(context.category ? context.category : ""), text});
    }

    QtMessageHandler m_previous;
};

} // namespace vistrel::test
