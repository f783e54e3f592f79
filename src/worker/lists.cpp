#include "worker/webapiworker.h"

// Not built yet: every operation answers its empty result.

QVariant WebApiWorker::dbGetInters4Terminal(uint /*tid*/, uint /*vorixID*/)
{
    return QVariant();
}

QVariant WebApiWorker::dbGetInter()
{
    return QVariant();
}

QVariant WebApiWorker::dbGetAttendanceGroups()
{
    return QVariant();
}

bool WebApiWorker::dbGetSaldo(uint /*tid*/, uint /*uid*/)
{
    return false;
}

QVariant WebApiWorker::dbGetPresent4Terminal(uint /*tid*/, uint /*uid*/)
{
    return QVariant();
}

QVariant WebApiWorker::dbGetPresent(uint /*uid*/)
{
    return QVariant();
}
