#ifndef LOGCAPTURE_H
#define LOGCAPTURE_H

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// Records every log line written while it lives (and still passes them on), for tests in
// which the log text is part of the contract. One at a time; not for use across threads.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QList<QPair<QtMsgType, QString>> entries() const;
    // The messages of one level, in the order written.
    QStringList lines(QtMsgType type) const;
    // The messages of one level that start with `prefix`.
    QStringList linesStartingWith(QtMsgType type, const QString &prefix) const;
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message);

    QtMessageHandler m_previous = nullptr;
    QList<QPair<QtMsgType, QString>> m_entries;
};

#endif
