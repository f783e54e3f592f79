#include "worker/webapiworker.h"

// Not built yet: every operation answers its empty result.

bool WebApiWorker::dbGetSync(uint /*tid*/, bool /*force*/)
{
    return false;
}

QVariantMap WebApiWorker::dbGetSyncInters(uint /*tid*/, bool /*force*/)
{
    return QVariantMap();
}

QVariantMap WebApiWorker::dbGetSyncPeople(uint /*tid*/, bool /*force*/)
{
    return QVariantMap();
}

QVariantMap WebApiWorker::dbGetSyncSaldo(uint /*tid*/, bool /*force*/)
{
    return QVariantMap();
}

QVariantMap WebApiWorker::dbGetSyncPresent(uint /*tid*/, bool /*force*/)
{
    return QVariantMap();
}

QVariantMap WebApiWorker::dbGetSyncTimezones(uint /*tid*/, bool /*force*/)
{
    return QVariantMap();
}

QVariantMap WebApiWorker::dbGetClrGrp(uint /*tid*/, bool /*force*/)
{
    return QVariantMap();
}

QVariantMap WebApiWorker::dbGetVars(uint /*tid*/)
{
    return QVariantMap();
}

int WebApiWorker::dbDeleteSync(uint /*tid*/, uint /*created*/, quint16 /*flags*/)
{
    return 0;
}

bool WebApiWorker::dbSetTermSyn(uint /*tid*/, quint16 /*flags*/)
{
    return false;
}

QString WebApiWorker::dbGetColorGroups()
{
    return QString();
}
