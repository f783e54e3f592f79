#ifndef WORKERCONTEXT_H
#define WORKERCONTEXT_H

#include <QObject>
#include <QSqlDatabase>

class HttpPluginWorker;

// Lives on one worker thread: jobs are queued to it, and it owns the plug-in worker made
// there and a connection of its own for health probes.
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
