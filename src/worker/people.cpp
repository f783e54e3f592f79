#include "worker/webapiworker.h"

// Not built yet: every operation answers its empty result.

bool WebApiWorker::dbCheckPerson(uint /*uid*/, uint /*pid*/)
{
    return false;
}

bool WebApiWorker::dbDeletePerson(uint /*tid*/, uint /*uid*/)
{
    return false;
}

QVariant WebApiWorker::dbGetPeople(uint /*uid*/)
{
    return QVariant();
}

QVariant WebApiWorker::dbGetPeople4Terminal(uint /*tid*/, uint /*uid*/)
{
    return QVariant();
}

uint WebApiWorker::dbInsertPerson(uint /*tid*/, const QVariantMap &/*data*/)
{
    return 0;
}

bool WebApiWorker::dbUpdatePerson(uint /*tid*/, uint /*uid*/, const QVariantMap &/*data*/)
{
    return false;
}

bool WebApiWorker::dbSetOtherTermsPeopleSync(uint /*tid*/, uint /*uid*/, char /*type*/)
{
    return false;
}
