#ifndef SEAMWORKER_H
#define SEAMWORKER_H

#include "worker/webapiworker.h"

// A worker that reaches what the shipped routing leaves unrouted: the synchronisation feed
// and the PUT and DELETE handlers. It lists the verbs and paths for itself and calls the
// members directly; the shipped WebApiWorker keeps its routing as it is.
class SeamWorker : public WebApiWorker
{
public:
    SeamWorker();

    // Runs `headers` through the spine up to routing (database, licence, credentials) and
    // leaves a fresh Response for the next call. False when the spine refused.
    bool prepare(const QStringList &headers);

    // One PUT or DELETE request below "/webapi", through the handler; the rendered text.
    QByteArray put(const QString &path, const QStringList &headers, const QByteArray &body);
    QByteArray del(const QString &path, const QStringList &headers);
};

#endif
