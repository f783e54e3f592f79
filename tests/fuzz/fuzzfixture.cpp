#include "fuzzfixture.h"

#include "support/apifixture.h"
#include "support/hostprocess.h"
#include "worker/webapiworker.h"

#include <QCoreApplication>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace {

// Qt's SQL drivers load as plug-ins, which wants an application object.
void ensureApplication()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    static QCoreApplication *app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    Q_UNUSED(app)
}

ApiFixture *g_api = nullptr;

} // namespace

FuzzFixture &FuzzFixture::instance()
{
    static FuzzFixture fixture;
    return fixture;
}

FuzzFixture::FuzzFixture()
{
    ensureApplication();
    g_api = new ApiFixture(QStringLiteral("fuzz"));
    m_api = g_api;
    if (!m_api->setUp()) {
        std::fprintf(stderr, "fuzz: no database (%s); start it with scripts/mariadb start\n", qPrintable(m_api->error()));
        std::abort();
    }
    // libFuzzer ends with exit(): the scratch databases are dropped then. Registered after
    // Qt's SQL globals exist, so it runs before they are destroyed.
    std::atexit(release);
    m_tid = m_api->addTerminal(1001);
    m_person = addPerson(*m_api);
}

void FuzzFixture::release()
{
    delete g_api;
    g_api = nullptr;
}

QByteArray FuzzFixture::substitute(QByteArray raw) const
{
    // Bytes, not text: a body that is not UTF-8 must reach the worker as it is.
    return raw.replace("$TOKEN", m_api->token().toUtf8())
        .replace("$KEY", ApiFixture::kKey.toUtf8())
        .replace("$TID", m_tid.toUtf8())
        .replace("$UID", m_person.toUtf8());
}

QByteArray FuzzFixture::call(const QByteArray &method, const QByteArray &target, const QList<QByteArray> &headers,
                             const QByteArray &body)
{
    QStringList lines;
    for (const QByteArray &line : headers)
        lines.append(QString::fromUtf8(substitute(line)));
    const QUrl url = QUrl::fromEncoded("http://127.0.0.1:8080" + substitute(target));
    return m_api->worker()->buildResponse(QString::fromUtf8(method), url, lines, substitute(body));
}
