#ifndef HTTPPLUGININTERFACE_H
#define HTTPPLUGININTERFACE_H

#include <QObject>
#include <QString>
#include <QStringList>

class HttpPluginWorker;

// What a host needs of an HTTP plug-in: the path prefixes it serves and workers that
// answer requests. The slot order of this class is part of the binary contract with hosts.
class HttpPluginInterface
{
public:
    virtual ~HttpPluginInterface() = default;

    virtual QStringList paths() const = 0;
    virtual QString getVersion() const = 0;
    virtual HttpPluginWorker *getNewWorker(QObject *parent) = 0;
    virtual HttpPluginWorker *getWorker() = 0;
};

#define HttpPluginInterface_iid "com.norva-tek.qhx.HttpPluginInterface"
Q_DECLARE_INTERFACE(HttpPluginInterface, HttpPluginInterface_iid)

#endif
