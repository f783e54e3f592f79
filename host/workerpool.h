#ifndef WORKERPOOL_H
#define WORKERPOOL_H

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

class DBManager;
class HttpPluginInterface;
class HttpPluginWorker;
class QThread;
class WorkerContext;

// A fixed set of threads, each with one plug-in worker made on that thread. A worker's
// connection name holds the customer's database and no thread, and Qt refuses a connection
// on a thread that did not make it, so one customer must always land on one thread:
// requests are spread by their customer token.
class WorkerPool
{
public:
    using Job = std::function<void(HttpPluginWorker *worker)>;

    WorkerPool(HttpPluginInterface *plugin, DBManager *manager, quint8 debugLevel);
    ~WorkerPool();

    // Starts `count` threads and makes their workers; blocks until all are ready.
    void start(int count, const QSqlDatabase &infoTemplate);
    // Deletes the workers on their threads and ends the threads.
    void stop();

    int size() const { return int(m_contexts.size()); }
    // Runs `job` on the thread of this token's customer; tokenless requests share thread 0.
    void submit(const QString &token, Job job);
    // Asks the InfoDB for a sign of life on thread 0; `done` runs there.
    void probeInfoDb(std::function<void(bool answers)> done);

    // The customer token as the plug-in reads it: the last line holding "Pragma:" (any case)
    // and "token", value up to the next colon. The host cannot link the plug-in's parser.
    static QString customerToken(const QStringList &headerLines);

private:
    HttpPluginInterface *m_plugin;
    DBManager *m_manager;
    quint8 m_debugLevel;
    std::vector<std::unique_ptr<QThread>> m_threads;
    std::vector<WorkerContext *> m_contexts;  // each deleted on its own thread
};

#endif
