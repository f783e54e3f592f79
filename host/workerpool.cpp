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

void WorkerPool::start(int count, const QSqlDatabase &infoTemplate)
{
    for (int i = 0; i < count; ++i) {
        auto thread = std::make_unique<QThread>();
        thread->setObjectName(QStringLiteral("worker-%1").arg(i));
        auto *context = new WorkerContext(i, infoTemplate);
        context->moveToThread(thread.get());
        thread->start();
        // Made on its own thread, so its connections belong there. One at a time: nothing
        // promises that getNewWorker may be entered concurrently.
        QMetaObject::invokeMethod(context, [this, context] {
            HttpPluginWorker *worker = m_plugin->getNewWorker(context);
            worker->setDbManager(m_manager);
            worker->setDebugLevel(m_debugLevel);
            context->setWorker(worker);
        }, Qt::BlockingQueuedConnection);
        m_contexts.push_back(context);
        m_threads.push_back(std::move(thread));
    }
}

void WorkerPool::stop()
{
    for (size_t i = 0; i < m_threads.size(); ++i) {
        WorkerContext *context = m_contexts[i];
        QMetaObject::invokeMethod(context, [context] { delete context; }, Qt::BlockingQueuedConnection);
        m_threads[i]->quit();
        m_threads[i]->wait();
    }
    m_contexts.clear();
    m_threads.clear();
}

void WorkerPool::submit(const QString &token, Job job)
{
    const size_t index = token.isEmpty() ? 0 : qHash(token) % m_contexts.size();
    WorkerContext *context = m_contexts[index];
    QMetaObject::invokeMethod(context, [context, job = std::move(job)] { job(context->worker()); },
                              Qt::QueuedConnection);
}

void WorkerPool::probeInfoDb(std::function<void(bool)> done)
{
    WorkerContext *context = m_contexts.front();
    QMetaObject::invokeMethod(context, [context, done = std::move(done)] { done(context->infoDbAnswers()); },
                              Qt::QueuedConnection);
}

QString WorkerPool::customerToken(const QStringList &headerLines)
{
    QString token;
    for (const QString &raw : headerLines) {
        const QString line = raw.simplified();
        if (!line.contains(QLatin1String("Pragma:"), Qt::CaseInsensitive)
            || !line.contains(QLatin1String("token"), Qt::CaseSensitive))
            continue;
        const QStringList parts = line.split(QLatin1Char(':'), Qt::SkipEmptyParts);
        token = parts.size() < 2 ? QString() : parts.at(1).trimmed();
    }
    return token;
}
