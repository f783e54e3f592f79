#include "worker/webapiworker.h"

// Not built yet: every operation answers its empty result.

bool WebApiWorker::dbCheckTerm(uint /*tid*/, uint /*vorixID*/)
{
    return false;
}

bool WebApiWorker::dbSetTermOnline(uint /*tid*/)
{
    return false;
}

uint WebApiWorker::dbInsertTerm(const QVariantMap &/*data*/)
{
    return 0;
}

QVariantMap WebApiWorker::dbGetTerm(uint /*tid*/)
{
    return QVariantMap();
}

bool WebApiWorker::dbUpdateTerm(uint /*tid*/, const QVariantMap &/*data*/)
{
    return false;
}
