#include "plugin/httppluginworker.h"

#include "database/dbmanager.h"

#include <QtDebug>

HttpPluginWorker::HttpPluginWorker(QObject *parent)
    : QObject(parent)
{
}

HttpPluginWorker::~HttpPluginWorker()
{
    closeAndRemoveDB();
}

void HttpPluginWorker::setDatabase(const QSqlDatabase &db)
{
    m_db = db;
}

void HttpPluginWorker::setDbManager(DBManager *manager)
{
    m_dbManager = manager;
}

void HttpPluginWorker::setDebugLevel(quint8 level)
{
    m_debugLevel = level;
}

void HttpPluginWorker::closeAndRemoveDB()
{
    const QString name = m_db.connectionName();
    qDebug("HttpPluginWorker::closeAndRemoveDB(%s)", qUtf8Printable(name));
    if (m_dbOpened && m_db.isValid() && m_db.isOpen()) {
        m_db.close();
        m_dbOpened = false;
    }
    // Dormant in this plug-in: neither flag is raised here, hosts that raise both get the
    // connection queued for their sweep.
    if (m_releaseConnection && m_dbManaged && m_dbManager && !m_db.isOpen() && !name.isEmpty())
        m_dbManager->addUnusedConnection(name);
}

void HttpPluginWorker::setReleaseConnection(bool release)
{
    m_releaseConnection = release;
}

void HttpPluginWorker::setStringList(const QStringList &list)
{
    m_stringList = list;
}

QByteArray HttpPluginWorker::encodeWebBase64(const QByteArray &data)
{
    QByteArray text = data.toBase64();
    text.replace('+', '-').replace('/', '_').replace('=', '@');
    return text;
}

QByteArray HttpPluginWorker::decodeWebBase64(const QByteArray &text)
{
    QByteArray copy = text;
    copy.replace('-', '+').replace('_', '/').replace('@', '=');
    return QByteArray::fromBase64(copy);
}
