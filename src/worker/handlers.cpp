#include "worker/webapiworker.h"

#include "response/response.h"

#include <QtDebug>

// Terminal verb handlers. Only the public lists are served so far.
void WebApiWorker::buildGetResponse(const QStringList &words)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::buildGetResponse(" << words.join(QStringLiteral(" | ")) << ")";
    if (words.isEmpty()) {
        m_response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
        return;
    }
    const QString &word = words.first();
    if (!m_getPaths.contains(word)) {
        m_response->setError(Response::RE_InvalidApiEndpoint, word);
        return;
    }
    if (word == QLatin1String("info"))
        m_response->setData(terminalInfo());
    else if (word == QLatin1String("response-errors"))
        m_response->setData(Response::errorList());
}

void WebApiWorker::buildPostResponse(const QStringList &words, const QByteArray &body)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::buildPostResponse(" << words.join(QStringLiteral(" | ")) << body.size() << ")";
    m_response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
}

void WebApiWorker::buildPutResponse(const QStringList &words, const QByteArray &body)
{
    Q_UNUSED(words)
    Q_UNUSED(body)
}

void WebApiWorker::buildDeleteResponse(const QStringList &words)
{
    Q_UNUSED(words)
}
