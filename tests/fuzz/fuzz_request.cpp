// Whole requests through buildResponse on a worker with a real database. Input: the method
// on the first line, the target on the second, header lines up to an empty line, then the
// body. Placeholders stand for the live values, so seeds stay valid across runs:
//   $TOKEN  customer token   $KEY  terminal key   $TID  terminal id   $UID  person id
#include "support/apifixture.h"
#include "support/hostprocess.h"
#include "worker/webapiworker.h"

#include <QCoreApplication>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace {

ApiFixture *g_api = nullptr;
QList<QPair<QByteArray, QByteArray>> g_placeholders;

} // namespace

// Drops the scratch databases, if they were made: the replay calls it while its application
// object lives, as the drop needs Qt's SQL plug-in.
extern "C" void fuzzRelease()
{
    delete g_api;
    g_api = nullptr;
}

namespace {

// One customer with a terminal, a person and an entrance type, made on first use.
ApiFixture &fixture()
{
    if (g_api)
        return *g_api;
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    const bool ownApp = !QCoreApplication::instance();
    if (ownApp)
        new QCoreApplication(argc, argv);
    g_api = new ApiFixture(QStringLiteral("fuzz"));
    if (!g_api->setUp()) {
        std::fprintf(stderr, "fuzz: no database (%s); start it with scripts/mariadb start\n", qPrintable(g_api->error()));
        std::abort();
    }
    // libFuzzer ends with exit(). Registered after Qt's SQL globals exist, so it runs before
    // they are destroyed.
    if (ownApp)
        std::atexit(fuzzRelease);
    g_placeholders = {{"$TOKEN", g_api->token().toUtf8()}, {"$KEY", ApiFixture::kKey.toUtf8()},
                      {"$TID", g_api->addTerminal(1001).toUtf8()}, {"$UID", addPerson(*g_api).toUtf8()}};
    return *g_api;
}

// Bytes, not text: a body that is not UTF-8 must reach the worker as it is.
QByteArray substitute(QByteArray raw)
{
    for (const auto &placeholder : g_placeholders)
        raw.replace(placeholder.first, placeholder.second);
    return raw;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ApiFixture &api = fixture();
    const QByteArray raw(reinterpret_cast<const char *>(data), int(size));
    const int headEnd = raw.indexOf("\n\n");
    // All of it when there is no body: the method, the target, then header lines.
    const QList<QByteArray> lines = substitute(raw.left(headEnd)).split('\n');
    const QByteArray target = lines.value(1, "/webapi");
    QStringList headers;
    for (const QByteArray &line : lines.mid(2))
        headers.append(QString::fromUtf8(line));
    // As the host makes it: the URL from the raw target.
    const QUrl url = QUrl::fromEncoded("http://127.0.0.1:8080" + target);
    const QByteArray body = headEnd < 0 ? QByteArray() : substitute(raw.mid(headEnd + 2));
    // Whatever came in, one whole HTTP response goes out.
    if (!HttpReply::parse(api.worker()->buildResponse(QString::fromUtf8(lines.first()), url, headers, body)).valid)
        std::abort();
    return 0;
}
