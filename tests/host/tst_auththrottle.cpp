// Failed authentications throttled per client address by the real host: 429 with
// Retry-After past the limit, other addresses and the health probe unaffected.
#include "support/apifixture.h"
#include "support/hostprocess.h"

#include "response/response.h"

#include <QtTest>

namespace {

const int kLimit = 3;

QList<QByteArray> request(const QString &token, const QByteArray &authorization)
{
    QList<QByteArray> lines{"Pragma: " + token.toUtf8()};
    if (!authorization.isEmpty())
        lines.append("Authorization: " + authorization);
    return lines;
}

} // namespace

class TestAuthThrottle : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusedPastTheLimit_data();
    void refusedPastTheLimit();
    void missingAuthorizationNotCounted();
    void zeroSwitchesItOff();

private:
    QByteArray goodKey() const { return "Bearer " + ApiFixture::kKey.toUtf8(); }

    QScopedPointer<ApiFixture> m_fx;
    HostProcess m_host;
};

void TestAuthThrottle::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("throttle")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    QVERIFY2(m_host.start(m_fx->info().name(), {{QStringLiteral("WEBAPI_AUTH_FAILURES"), QString::number(kLimit)}}),
             m_host.log().constData());
}

void TestAuthThrottle::refusedPastTheLimit_data()
{
    QTest::addColumn<QByteArray>("authorization");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("client");  // each row its own address: windows do not mix
    QTest::newRow("guessed key") << QByteArray("Bearer guess-0001") << int(Response::RE_BadApiToken) << "127.0.0.11";
    QTest::newRow("other scheme") << QByteArray("Basic Z3Vlc3M=") << int(Response::RE_BadAuthorization) << "127.0.0.12";
}

void TestAuthThrottle::refusedPastTheLimit()
{
    QFETCH(QByteArray, authorization);
    QFETCH(int, code);
    QFETCH(QString, client);
    HttpConnection attacker(m_host.port(), QHostAddress(client));
    QVERIFY(attacker.isConnected());
    for (int i = 0; i < kLimit; ++i) {
        const HttpReply reply = HttpReply::parse(attacker.request("GET", "/webapi/people", request(m_fx->token(), authorization)));
        QCOMPARE(reply.status, 401);
        QCOMPARE(reply.errorCode(), code);
    }
    // Past the limit even the right key is refused, before the plug-in is asked.
    const HttpReply refused = HttpReply::parse(attacker.request("GET", "/webapi/info", request(m_fx->token(), goodKey())));
    QCOMPARE(refused.status, 429);
    const int retryAfter = refused.header("Retry-After").toInt();
    QVERIFY2(retryAfter >= 1 && retryAfter <= 60, refused.header("Retry-After").constData());
    QCOMPARE(refused.body, QByteArray("too many failed authentications; retry later\n"));
    QVERIFY(refused.header("X-WEBAPI-VER").isEmpty());
    QVERIFY(attacker.isConnected());  // keep-alive as asked
    QCOMPARE(HttpReply::parse(attacker.request("GET", "/healthz", {})).status, 200);

    HttpConnection neighbour(m_host.port(), QHostAddress(client.left(client.lastIndexOf('.')) + QStringLiteral(".99")));
    QCOMPARE(HttpReply::parse(neighbour.request("GET", "/webapi/info", request(m_fx->token(), goodKey()))).status, 200);
    QVERIFY(m_host.waitForLog(client.toUtf8() + " \"GET /webapi/info\" 429 "));
}

void TestAuthThrottle::missingAuthorizationNotCounted()
{
    HttpConnection client(m_host.port(), QHostAddress(QStringLiteral("127.0.0.21")));
    for (int i = 0; i < kLimit * 2; ++i) {
        const HttpReply reply = HttpReply::parse(client.request("GET", "/webapi/info", request(m_fx->token(), QByteArray())));
        QCOMPARE(reply.status, 401);
        QCOMPARE(reply.errorCode(), int(Response::RE_Unauthorized));
    }
    QCOMPARE(HttpReply::parse(client.request("GET", "/webapi/info", request(m_fx->token(), goodKey()))).status, 200);
}

void TestAuthThrottle::zeroSwitchesItOff()
{
    HostProcess host;
    QVERIFY2(host.start(m_fx->info().name(), {{QStringLiteral("WEBAPI_AUTH_FAILURES"), QStringLiteral("0")}}),
             host.log().constData());
    HttpConnection client(host.port());
    for (int i = 0; i < 12; ++i)  // past the default limit too
        QCOMPARE(HttpReply::parse(client.request("GET", "/webapi/info", request(m_fx->token(), "Bearer nope"))).status, 401);
    QCOMPARE(HttpReply::parse(client.request("GET", "/webapi/info", request(m_fx->token(), goodKey()))).status, 200);
}

QTEST_GUILESS_MAIN(TestAuthThrottle)
#include "tst_auththrottle.moc"
