#include "fuzzfixture.h"

#include "support/apifixture.h"
#include "support/hostprocess.h"
#include "worker/webapiworker.h"

#include <QCoreApplication>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace {

ApiFixture *g_api = nullptr;

} // namespace

FuzzFixture &FuzzFixture::instance()
{
    static FuzzFixture fixture;
    return fixture;
}

FuzzFixture::FuzzFixture()
{
    // Qt's SQL drivers load as plug-ins, which wants an application object.
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
    g_api = new ApiFixture(QStringLiteral("fuzz"));
    if (!g_api->setUp()) {
        std::fprintf(stderr, "fuzz: no database (%s); start it with scripts/mariadb start\n", qPrintable(g_api->error()));
        std::abort();
    }
    // libFuzzer ends with exit(): the scratch databases are dropped then. Registered after
    // Qt's SQL globals exist, so it runs before they are destroyed.
    std::atexit(release);
    m_placeholders = {{"$TOKEN", g_api->token().toUtf8()}, {"$KEY", ApiFixture::kKey.toUtf8()},
                      {"$TID", g_api->addTerminal(1001).toUtf8()}, {"$UID", addPerson(*g_api).toUtf8()}};
}

void FuzzFixture::release()
{
    delete g_api;
    g_api = nullptr;
}

QByteArray FuzzFixture::substitute(QByteArray raw) const
{
    // Bytes, not text: a body that is not UTF-8 must reach the worker as it is.
    for (const auto &placeholder : m_placeholders)
        raw.replace(placeholder.first, placeholder.second);
    return raw;
}

QByteArray FuzzFixture::call(const QByteArray &method, const QByteArray &target, const QList<QByteArray> &headers,
                             const QByteArray &body)
{
    QStringList lines;
    for (const QByteArray &line : headers)
        lines.append(QString::fromUtf8(substitute(line)));
    const QUrl url = QUrl::fromEncoded("http://127.0.0.1:8080" + substitute(target));
    const QByteArray response = g_api->worker()->buildResponse(QString::fromUtf8(method), url, lines, substitute(body));
    // Whatever came in, one whole HTTP response goes out.
    if (!HttpReply::parse(response).valid)
        std::abort();
    return response;
}
