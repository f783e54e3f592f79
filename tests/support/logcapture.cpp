#include "support/logcapture.h"

namespace {

QList<QPair<QtMsgType, QString>> *g_entries = nullptr;
QtMessageHandler g_previous = nullptr;

void record(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    g_entries->append({type, message});
    if (g_previous)
        g_previous(type, context, message);
}

} // namespace

LogCapture::LogCapture()
{
    g_entries = &m_entries;
    m_previous = g_previous = qInstallMessageHandler(record);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    g_entries = nullptr;
}
