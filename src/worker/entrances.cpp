#include "worker/webapiworker.h"

// Not built yet: every operation answers its empty result.

bool WebApiWorker::dbCheckEntrance(uint /*id*/, uint /*refId*/)
{
    return false;
}

bool WebApiWorker::dbDeleteEntrance(uint /*tid*/, uint /*id*/)
{
    return false;
}

uint WebApiWorker::dbGetEntranceMaxRefId(uint /*tid*/)
{
    return 0;
}

uint WebApiWorker::dbInsertEntrance(uint /*tid*/, const QVariantMap &/*data*/)
{
    return 0;
}

QVariant WebApiWorker::dbGetEntrance(uint /*id*/)
{
    return QVariant();
}
