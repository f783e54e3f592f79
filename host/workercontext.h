#ifndef WORKERCONTEXT_H
#define WORKERCONTEXT_H

#include <QObject>
#include <QSqlDatabase>

class HttpPluginWorker;

// Lives on one thread of the pool: on a worker thread it owns the plug-in worker made there
// and runs jobs on it; on the probe thread it has no worker and answers health probes on a
// connection of its own.
class WorkerContext : public QObject
{
    Q_OBJECT

public:
    WorkerContext(int index, const QSqlDatabase &infoTemplate);
    ~WorkerContext() override;

    void setWorker(HttpPluginWorker *worker) { m_worker = worker; }
    HttpPluginWorker *worker() const { return m_worker; }
    bool infoDbAnswers();

private:
    HttpPluginWorker *m_worker = nullptr;  // child of this object
    QSqlDatabase m_infoTemplate;
    QString m_probeName;
};

#endif
