// The request spine end to end: header checks, database, licence, routing and rendering,
// through buildResponse on a real DBManager and the private MariaDB.
#include "support/apifixture.h"

#include "database/dbmanager.h"
#include "licence/licence.h"
#include "response/response.h"
#include "worker/webapiworker.h"

#include <QtTest>

class TestSpine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void responseErrorsListsCatalogue();
    void sqlErrorTextOnlyInDevelopment();
    void noManagerIsBadDatabase();

private:
    QScopedPointer<ApiFixture> m_fx;
};

void TestSpine::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("spine")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
}

void TestSpine::wholeResponses_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QString>("expectedFile");

    const QString pragma = QStringLiteral("Pragma: ") + m_fx->token();
    const QString auth = QStringLiteral("Authorization: Bearer ") + ApiFixture::kKey;
    QTest::newRow("no authorization") << "GET" << "/webapi/info" << QStringList{pragma} << "spine/unauthorized.http";
    QTest::newRow("unknown database") << "GET" << "/webapi/info"
                                      << QStringList{QStringLiteral("Pragma: token-nobody"), auth}
                                      << "spine/bad-database.http";
    QTest::newRow("bad scheme") << "GET" << "/webapi/info"
                                << QStringList{pragma, QStringLiteral("Authorization: Basic abc")}
                                << "spine/bad-scheme.http";
    QTest::newRow("unknown key") << "GET" << "/webapi/info"
                                 << QStringList{pragma, QStringLiteral("Authorization: Bearer wrong-key-value")}
                                 << "spine/unknown-key.http";
    QTest::newRow("put in terminal context") << "PUT" << "/webapi/person" << QStringList{pragma, auth}
                                             << "spine/put.http";
    QTest::newRow("unknown get path") << "GET" << "/webapi/nothing/here" << QStringList{pragma, auth}
                                      << "spine/unknown-path.http";
    QTest::newRow("info") << "GET" << "/webapi/info" << QStringList{pragma, auth} << "spine/info.http";
}

void TestSpine::wholeResponses()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QStringList, headers);
    QFETCH(QString, expectedFile);
    COMPARE_EXPECTED(maskTms(m_fx->call(method, path, headers)), expectedFile);
}

void TestSpine::responseErrorsListsCatalogue()
{
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/response-errors"),
                                          m_fx->terminalHeaders());
    QVERIFY(reply.valid);
    QCOMPARE(reply.status, 200);
    COMPARE_EXPECTED(reply.body, QStringLiteral("spine/response-errors.json"));
}

void TestSpine::sqlErrorTextOnlyInDevelopment()
{
    // A licence that is not switched on for this one case.
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE vars SET value = '0' WHERE name = 'webapi.enabled'")));
    const HttpReply closed = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/info"), m_fx->terminalHeaders());
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE vars SET value = '1' WHERE name = 'webapi.enabled'")));
    QCOMPARE(closed.status, 401);
    QCOMPARE(closed.body, QByteArray("{\n    \"code\": 100006,\n    \"message\": \"Bad authorization 'REST interface not licensed'\"\n}\n"));

    // A failing statement: the worker reports it through the one failure path.
    Response hidden(RequestHeader{});
    RequestHeader devel;
    devel.develEnv = true;
    Response shown(devel);
    hidden.setError(Response::RE_SQLError, QStringLiteral("Table 'x' doesn't exist"));
    shown.setError(Response::RE_SQLError, QStringLiteral("Table 'x' doesn't exist"));
    COMPARE_EXPECTED(maskTms(hidden.renderResponse(true)), QStringLiteral("spine/sql-error-hidden.http"));
    COMPARE_EXPECTED(maskTms(shown.renderResponse(true)), QStringLiteral("spine/sql-error-shown.http"));
}

void TestSpine::noManagerIsBadDatabase()
{
    WebApiWorker worker(QStringLiteral("2.4.1"));
    const QByteArray raw = worker.buildResponse(QStringLiteral("GET"), QUrl(QStringLiteral("http://h/webapi/info")),
                                                m_fx->terminalHeaders(), QByteArray());
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("spine/no-manager.http"));
}

QTEST_GUILESS_MAIN(TestSpine)
#include "tst_spine.moc"
