#include "workerpool.h"

#include "workercontext.h"

#include "database/dbmanager.h"
#include "plugin/httpplugininterface.h"
#include "plugin/httppluginworker.h"

#include <QThread>

WorkerPool::WorkerPool(HttpPluginInterface *plugin, DBManager *manager, quint8 debugLevel)
    : m_plugin(plugin)
    , m_manager(manager)
    , m_debugLevel(debugLevel)
{
}

WorkerPool::~WorkerPool()
{
    stop();
}

void WorkerPool::startThread(WorkerContext *context, const QString &name)
{
    auto thread = std::make_unique<QThread>();
    thread->setObjectName(name);
    context->moveToThread(thread.get());
    thread->start();
    m_threads.push_back(std::move(thread));
}

void WorkerPool::start(int count, int queueDepth, const QSqlDatabase &infoTemplate)
{
    for (int i = 0; i < count; ++i) {
        auto *context = new WorkerContext(i, infoTemplate);
        startThread(context, QStringLiteral("worker-%1").arg(i));
        // Made on its own thread, so its connections belong there. One at a time: nothing
        // promises that getNewWorker may be entered concurrently.
        QMetaObject::invokeMethod(context, [this, context] {
            HttpPluginWorker *worker = m_plugin->getNewWorker(context);
            worker->setDbManager(m_manager);
            worker->setDebugLevel(m_debugLevel);
            context->setWorker(worker);
        }, Qt::BlockingQueuedConnection);
        m_contexts.push_back(context);
    }
    m_probe = new WorkerContext(count, infoTemplate);
    startThread(m_probe, QStringLiteral("probe"));
    std::lock_guard<std::mutex> lock(m_mutex);
    m_idle = m_contexts;
    m_free = m_contexts.size();
    m_depth = size_t(queueDepth);
    m_closed = false;
}

void WorkerPool::stop()
{
    close();
    std::vector<WorkerContext *> contexts = m_contexts;
    if (m_probe)
        contexts.push_back(m_probe);
    for (size_t i = 0; i < m_threads.size(); ++i) {
        WorkerContext *context = contexts[i];
        QMetaObject::invokeMethod(context, [context] { delete context; }, Qt::BlockingQueuedConnection);
        m_threads[i]->quit();
        m_threads[i]->wait();
    }
    m_contexts.clear();
    m_probe = nullptr;
    m_threads.clear();
}

bool WorkerPool::submit(Job job)
{
    WorkerContext *wake = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        // Jobs beyond the free workers are the ones that wait.
        if (m_closed || m_queue.size() >= m_depth + m_free)
            return false;
        m_queue.push_back(std::move(job));
        if (!m_idle.empty()) {
            wake = m_idle.back();
            m_idle.pop_back();
        }
    }
    if (wake)
        QMetaObject::invokeMethod(wake, [this, wake] { runNext(wake); }, Qt::QueuedConnection);
    return true;
}

void WorkerPool::runNext(WorkerContext *context)
{
    Job job;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closed || m_queue.empty()) {
            m_idle.push_back(context);
            return;
        }
        job = std::move(m_queue.front());
        m_queue.pop_front();
        --m_free;
    }
    job(context->worker());
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_free;
    }
    QMetaObject::invokeMethod(context, [this, context] { runNext(context); }, Qt::QueuedConnection);
}

void WorkerPool::close()
{
    std::deque<Job> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
        dropped.swap(m_queue);
    }
    // Destroyed outside the lock: a job may hold the last reference to its connection.
}

void WorkerPool::probeInfoDb(std::function<void(bool)> done)
{
    WorkerContext *probe = m_probe;
    QMetaObject::invokeMethod(probe, [probe, done = std::move(done)] { done(probe->infoDbAnswers()); },
                              Qt::QueuedConnection);
}

int WorkerPool::queued()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_queue.size());
}

