#ifndef VERINFOINTERFACE_H
#define VERINFOINTERFACE_H

#include <QMap>
#include <QObject>
#include <QString>

// Version information of a loaded module, read by hosts for their status pages.
class VerInfoInterface
{
public:
    virtual ~VerInfoInterface() = default;

    virtual QMap<QString, QString> getVerInfo() const = 0;
};

#define VerInfoInterface_iid "com.norva-tek.VerInfoInterface"
Q_DECLARE_INTERFACE(VerInfoInterface, VerInfoInterface_iid)

#endif
