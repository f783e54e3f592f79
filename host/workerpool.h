#ifndef WORKERPOOL_H
#define WORKERPOOL_H

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class DBManager;
class HttpPluginInterface;
class HttpPluginWorker;
class QThread;
class WorkerContext;

// A fixed set of threads, each with one plug-in worker made on that thread, fed from one
// shared queue: the first free thread takes the oldest request, whatever customer it is
// for. The queue is bounded, so a flood is refused at once instead of waiting without end.
// Health probes run on a thread of their own and never wait behind customers' work.
class WorkerPool
{
public:
    using Job = std::function<void(HttpPluginWorker *worker)>;

    WorkerPool(HttpPluginInterface *plugin, DBManager *manager, quint8 debugLevel);
    ~WorkerPool();

    // Starts `count` worker threads and the probe thread; blocks until all are ready. At
    // most `queueDepth` jobs wait for a free worker.
    void start(int count, int queueDepth, const QSqlDatabase &infoTemplate);
    // Deletes the workers on their threads and ends the threads.
    void stop();

    int size() const { return int(m_contexts.size()); }
    int queued();  // jobs waiting for a free worker
    // Queues `job` for the first free worker; false, and `job` dropped, when the queue is
    // full or closed. A job may be run long after this returns: it checks itself whether
    // its request is still wanted.
    bool submit(Job job);
    // At a stop: takes no more jobs and drops those not started, whose requests the host
    // answers itself.
    void close();
    // Asks the InfoDB for a sign of life on the probe thread; `done` runs there.
    void probeInfoDb(std::function<void(bool answers)> done);

private:
    void startThread(WorkerContext *context, const QString &name);
    // On `context`'s thread: runs the oldest queued job, then lets the thread's event loop
    // turn before the next, so the worker's own timers and events are not starved.
    void runNext(WorkerContext *context);

    HttpPluginInterface *m_plugin;
    DBManager *m_manager;
    quint8 m_debugLevel;
    std::vector<std::unique_ptr<QThread>> m_threads;  // the workers', then the probe's
    std::vector<WorkerContext *> m_contexts;          // each deleted on its own thread
    WorkerContext *m_probe = nullptr;

    std::mutex m_mutex;
    std::deque<Job> m_queue;
    std::vector<WorkerContext *> m_idle;  // waiting for a job; woken by submit
    size_t m_free = 0;                    // not running a job: idle, or woken and about to look
    size_t m_depth = 0;
    bool m_closed = false;
};

#endif
