#include "support/seamworker.h"

#include "response/response.h"

SeamWorker::SeamWorker()
    : WebApiWorker(QStringLiteral("2.4.1"))
{
    m_verbs << QStringLiteral("PUT") << QStringLiteral("DELETE");
    m_putPaths << QStringLiteral("term") << QStringLiteral("person");
    m_deletePaths << QStringLiteral("person") << QStringLiteral("entrance") << QStringLiteral("sync");
}

bool SeamWorker::prepare(const QStringList &headers)
{
    // GET info passes every check of the spine and needs no terminal.
    buildResponse(QStringLiteral("GET"), QUrl(QStringLiteral("http://localhost/webapi/info")), headers, QByteArray());
    if (m_response->errorCode() != 0)
        return false;
    m_response.reset(new Response(m_header));
    m_response->setHeader(QStringLiteral("X-WEBAPI-VER"), m_version);
    return true;
}

QByteArray SeamWorker::put(const QString &path, const QStringList &headers, const QByteArray &body)
{
    if (!prepare(headers))
        return m_response->renderResponse(true);
    buildPutResponse(urlPathWords(QUrl(QStringLiteral("http://localhost") + path)), body);
    return m_response->renderResponse(true);
}

QByteArray SeamWorker::del(const QString &path, const QStringList &headers)
{
    if (!prepare(headers))
        return m_response->renderResponse(true);
    buildDeleteResponse(urlPathWords(QUrl(QStringLiteral("http://localhost") + path)));
    return m_response->renderResponse(true);
}
