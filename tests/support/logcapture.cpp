#include "support/logcapture.h"

namespace {

LogCapture *g_current = nullptr;

} // namespace

LogCapture::LogCapture()
{
    g_current = this;
    m_previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    g_current = nullptr;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (!g_current)
        return;
    g_current->m_entries.append({type, message});
    if (g_current->m_previous)
        g_current->m_previous(type, context, message);
}

QList<QPair<QtMsgType, QString>> LogCapture::entries() const
{
    return m_entries;
}

QStringList LogCapture::lines(QtMsgType type) const
{
    QStringList result;
    for (const auto &entry : m_entries) {
        if (entry.first == type)
            result.append(entry.second);
    }
    return result;
}

QStringList LogCapture::linesStartingWith(QtMsgType type, const QString &prefix) const
{
    QStringList result;
    for (const QString &line : lines(type)) {
        if (line.startsWith(prefix))
            result.append(line);
    }
    return result;
}

void LogCapture::clear()
{
    m_entries.clear();
}
