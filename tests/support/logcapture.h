#ifndef LOGCAPTURE_H
#define LOGCAPTURE_H

#include <QList>
#include <QPair>
#include <QStringList>

// Records every log line written while it lives (and still passes them on), for tests in
// which the log text is part of the contract. One at a time; not for use across threads.
class LogCapture
{
public:
    LogCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(record);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QList<QPair<QtMsgType, QString>> entries() const { return m_entries; }
    // The messages of one level (that start with `prefix`), in the order written.
    QStringList lines(QtMsgType type) const { return linesStartingWith(type, QString()); }
    QStringList linesStartingWith(QtMsgType type, const QString &prefix) const
    {
        QStringList result;
        for (const auto &entry : m_entries) {
            if (entry.first == type && entry.second.startsWith(prefix))
                result.append(entry.second);
        }
        return result;
    }

private:
    static void record(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        s_current->m_entries.append({type, message});
        if (s_current->m_previous)
            s_current->m_previous(type, context, message);
    }

    static inline LogCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    QList<QPair<QtMsgType, QString>> m_entries;
};

#endif
