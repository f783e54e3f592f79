#include "workercontext.h"

#include "plugin/httppluginworker.h"

#include <QSqlQuery>

WorkerContext::WorkerContext(int index, const QSqlDatabase &infoTemplate)
    : m_infoTemplate(infoTemplate)
    , m_probeName(QStringLiteral("host.probe.%1").arg(index))
{
}

WorkerContext::~WorkerContext()
{
    delete m_worker;
    m_worker = nullptr;
    if (QSqlDatabase::contains(m_probeName)) {
        QSqlDatabase::database(m_probeName, false).close();
        QSqlDatabase::removeDatabase(m_probeName);
    }
}

bool WorkerContext::infoDbAnswers()
{
    // A connection of this thread's own: the manager's InfoDB handle is for the manager.
    QSqlDatabase db = QSqlDatabase::contains(m_probeName)
        ? QSqlDatabase::database(m_probeName, false)
        : QSqlDatabase::cloneDatabase(m_infoTemplate, m_probeName);
    if (!db.isOpen() && !db.open())
        return false;
    QSqlQuery query(db);
    if (query.exec(QStringLiteral("SELECT 1")) && query.next())
        return true;
    db.close();  // reopened by the next probe
    return false;
}
