#ifndef WEBAPI_H
#define WEBAPI_H

#include "plugin/httpplugininterface.h"
#include "plugin/verinfointerface.h"

#include <QObject>

class WebApiWorker;

// The plug-in object. It holds no request state: it makes workers and relays their
// recordCreated signal to the host.
class WebAPI : public QObject, public HttpPluginInterface, public VerInfoInterface
{
    Q_OBJECT
    // The plug-in metadata and entry points are written in webapi.cpp, not by moc.
    Q_INTERFACES(HttpPluginInterface VerInfoInterface)

public:
    explicit WebAPI(QObject *parent = nullptr);

    QStringList paths() const override;
    QString getVersion() const override;
    HttpPluginWorker *getNewWorker(QObject *parent) override;
    HttpPluginWorker *getWorker() override;
    QMap<QString, QString> getVerInfo() const override;

signals:
    void recordCreated(QString tbl, uint id, const QString &token, quint8 flags);

private:
    WebApiWorker *createWorker(QObject *parent);

    WebApiWorker *m_worker = nullptr;
};

#endif
