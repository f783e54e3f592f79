#ifndef HTTPPLUGINWORKER_H
#define HTTPPLUGINWORKER_H

#include <QByteArray>
#include <QObject>
#include <QSqlDatabase>
#include <QStringList>
#include <QUrl>

class DBManager;

// The abstract worker a host hands each request to. Hosts compile against this header, so
// the field order and the virtual slot order are part of the binary contract. It has no
// meta-object of its own on purpose.
class HttpPluginWorker : public QObject
{
public:
    explicit HttpPluginWorker(QObject *parent = nullptr);
    ~HttpPluginWorker() override;

    virtual QByteArray buildResponse(const QString &method, const QUrl &url,
                                     const QStringList &headers, const QByteArray &body) = 0;
    virtual void setDatabase(const QSqlDatabase &db);
    virtual void setDbManager(DBManager *manager);
    virtual bool isReady() = 0;
    virtual void setDebugLevel(quint8 level);

    void closeAndRemoveDB();
    void setReleaseConnection(bool release);
    void setStringList(const QStringList &list);

    static QByteArray encodeWebBase64(const QByteArray &data);
    static QByteArray decodeWebBase64(const QByteArray &text);

protected:
    quint8 m_debugLevel = 0;
    DBManager *m_dbManager = nullptr;
    QSqlDatabase m_db;
    bool m_dbOpened = false;
    bool m_dbManaged = false;          // second condition for handing the connection back
    bool m_releaseConnection = false;  // first condition; only setReleaseConnection sets it
    QStringList m_stringList;
};

#endif
