// Terminal registration and the terminal test of the handlers, through buildResponse on the
// private MariaDB.
#include "support/apifixture.h"

#include "response/response.h"
#include "worker/webapiworker.h"

#include <QtTest>

class TestTerminals : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void registrationStoresRow();
    void repeatWithinSecondIs208();
    void deviceNotLicensed();
    void quoteInNameIsSqlError();
    void reRegistrationUpdatesLatestRow();
    void terminalTest_data();
    void terminalTest();
    void badInput_data();
    void badInput();

private:
    HttpReply post(const QByteArray &body);
    int termRows();

    QScopedPointer<ApiFixture> m_fx;
};

void TestTerminals::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("terminals")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
}

HttpReply TestTerminals::post(const QByteArray &body)
{
    return m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/terminal"), m_fx->terminalHeaders(), body);
}

int TestTerminals::termRows()
{
    return m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM term")).toInt();
}

void TestTerminals::wholeResponses_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("expectedFile");

    QTest::newRow("new terminal")
        << QByteArray(R"({"vid": 4711, "name": " Main door ", "mac": "00:1A:2B:3C:4D:5E", "ip": "10.0.0.5", "ver": "1.2"})")
        << "terminal/register-new.http";
    // The failed registration still answers the empty map of the lookup, under the error's status.
    QTest::newRow("no vid") << QByteArray(R"({"vid": 0})") << "terminal/register-no-vid.http";
    QTest::newRow("broken body") << QByteArray("{\"vid\": ") << "terminal/register-broken.http";
}

void TestTerminals::wholeResponses()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, expectedFile);
    // Fixed numbers for the new row, whatever ran before.
    QVERIFY(m_fx->customer().exec(QStringLiteral("ALTER TABLE term AUTO_INCREMENT = 9000")));
    COMPARE_EXPECTED(maskTms(m_fx->call(QStringLiteral("POST"), QStringLiteral("/webapi/terminal"),
                                        m_fx->terminalHeaders(), body)),
                     expectedFile);
}

void TestTerminals::registrationStoresRow()
{
    const HttpReply reply = post(R"({"vid": 5001, "name": "Gate", "mac": "aa:bb:cc:dd:ee:ff", "ip": "", "ver": ""})");
    QCOMPARE(reply.status, 201);
    // An empty address is not written; the row is active, typed API, online now.
    QCOMPARE(m_fx->customer().scalar(QStringLiteral(
                 "SELECT CONCAT_WS('|', name, mac, IFNULL(ip, 'NULL'), ver, type, status, flags, "
                 "ABS(online - UNIX_TIMESTAMP()) < 5) FROM term WHERE vorixID = 5001")).toString(),
             QStringLiteral("Gate|aa:bb:cc:dd:ee:ff|NULL||API|1|0|1"));
    const uint tid = m_fx->customer().scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 5001")).toUInt();
    QCOMPARE(reply.json().object().value("tid").toString(), WebApiWorker::encodeId(tid, 5001));
}

void TestTerminals::repeatWithinSecondIs208()
{
    // The repeat must land in the same second as the registration, or `online` changes.
    for (uint vid = 5100; vid < 5105; ++vid) {
        const QByteArray body = QStringLiteral(R"({"vid": %1, "name": "Twice"})").arg(vid).toUtf8();
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const HttpReply first = post(body);
        const HttpReply second = post(body);
        if (QDateTime::currentSecsSinceEpoch() != before)
            continue;
        QCOMPARE(first.status, 201);
        QCOMPARE(second.status, 208);
        QCOMPARE(second.body, first.body);
        QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM term WHERE vorixID = %1").arg(vid)).toInt(), 1);
        return;
    }
    QFAIL("no two requests within one second");
}

void TestTerminals::deviceNotLicensed()
{
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE vars SET value = '1000-1999' WHERE name = 'webapi.devices'")));
    const QByteArray raw = m_fx->call(QStringLiteral("POST"), QStringLiteral("/webapi/terminal"), m_fx->terminalHeaders(),
                                      R"({"vid": 5003, "name": "Foreign"})");
    QVERIFY(m_fx->customer().exec(QStringLiteral("UPDATE vars SET value = '*' WHERE name = 'webapi.devices'")));
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("terminal/register-bad-vid.http"));
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM term WHERE vorixID = 5003")).toInt(), 0);
}

void TestTerminals::quoteInNameIsSqlError()
{
    // Refused before any statement is sent, on the same failure path.
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("^WebApiWorker::dbInsertTerm\\(\\) SQl ERROR: .*\nSQL: ")));
    const HttpReply reply = post(R"({"vid": 5004, "name": "Door \"B\""})");
    QCOMPARE(reply.status, 500);
    QCOMPARE(m_fx->worker()->response()->errorCode(), int(Response::RE_SQLError));
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM term WHERE vorixID = 5004")).toInt(), 0);
}

void TestTerminals::reRegistrationUpdatesLatestRow()
{
    QVERIFY(m_fx->customer().exec(
        QStringLiteral("INSERT INTO term (vorixID, type, status, name, flags) VALUES (5005, 'API', 1, 'old', 7), "
                       "(5005, 'LEGACY', 0, 'latest', 7)")));
    const uint latest = m_fx->customer().scalar(QStringLiteral("SELECT MAX(tid) FROM term WHERE vorixID = 5005")).toUInt();
    const HttpReply reply = post(R"({"vid": 5005, "name": "   ", "mac": "  "})");
    QCOMPARE(reply.status, 200);
    // The latest row comes back active, typed API, with flags cleared and the blank name emptied.
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT GROUP_CONCAT(CONCAT_WS('|', type, status, name, flags) "
                                                    "ORDER BY tid SEPARATOR ';') FROM term WHERE vorixID = 5005")).toString(),
             QStringLiteral("API|1|old|7;API|1||0"));
    QCOMPARE(reply.json().object().value("tid").toString(), WebApiWorker::encodeId(latest, 5005));
}

void TestTerminals::terminalTest_data()
{
    QTest::addColumn<QString>("tid");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    QTest::newRow("empty") << QString() << 400 << int(Response::RE_InvalidID) << "Invalid ID ''!";
    QTest::newRow("garbage") << "%%%" << 400 << int(Response::RE_InvalidID) << "Invalid ID '%%%'!";
    QTest::newRow("unknown") << WebApiWorker::encodeId(777777, 1) << 404 << int(Response::RE_NoTerminal)
                             << "Terminal not found!";
}

void TestTerminals::terminalTest()
{
    QFETCH(QString, tid);
    QFETCH(int, status);
    QFETCH(int, code);
    QFETCH(QString, message);
    QStringList headers = m_fx->terminalHeaders();
    headers << QStringLiteral("X-ZMT-TID: ") + tid;
    const HttpReply reply = m_fx->request(QStringLiteral("GET"), QStringLiteral("/webapi/people"), headers);
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.errorCode(), code);
    QCOMPARE(reply.message(), message);
}

void TestTerminals::badInput_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");  // -1: not checked

    const int vidCode = Response::RE_RequiredVorixID;
    const int nameCode = Response::RE_RequiredName;
    QTest::newRow("vid 0, no name") << QByteArray(R"({"vid": 0})") << 422 << vidCode;
    QTest::newRow("no vid") << QByteArray(R"({"name": "A"})") << 422 << vidCode;
    QTest::newRow("vid not a number") << QByteArray(R"({"vid": "abc", "name": "A"})") << 422 << vidCode;
    QTest::newRow("no name") << QByteArray(R"({"vid": 6001})") << 422 << nameCode;
    QTest::newRow("empty name") << QByteArray(R"({"vid": 6001, "name": ""})") << 422 << nameCode;
    QTest::newRow("not json") << QByteArray("vid=1&name=x") << 400 << -1;
    QTest::newRow("array") << QByteArray(R"([{"vid": 7001, "name": "x"}])") << 422 << -1;
    QTest::newRow("vid object") << QByteArray(R"({"vid": {"a": 1}, "name": "x"})") << 422 << -1;
    QTest::newRow("vid huge") << QByteArray(R"({"vid": 1e300, "name": "x"})") << 422 << -1;
    QTest::newRow("name array") << QByteArray(R"({"vid": 7002, "name": ["x"]})") << 422 << -1;
    QTest::newRow("name number") << QByteArray(R"({"vid": 7003, "name": 12})") << 201 << 0;
    QTest::newRow("mac object") << QByteArray(R"({"vid": 7004, "name": "x", "mac": {"a": 1}})") << 201 << 0;
    QTest::newRow("name with percent") << QByteArray(R"({"vid": 7005, "name": "50%1 %2"})") << 201 << 0;
    QTest::newRow("empty object") << QByteArray("{}") << 422 << -1;
    QTest::newRow("empty body") << QByteArray() << 400 << -1;
}

void TestTerminals::badInput()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(int, code);
    const int before = termRows();
    const HttpReply reply = post(body);
    QVERIFY(reply.valid);
    QCOMPARE(reply.status, status);
    // A failed registration answers an empty map: the code is only on the Response.
    if (code >= 0)
        QCOMPARE(m_fx->worker()->response()->errorCode(), code);
    QCOMPARE(termRows(), before + (status == 201 ? 1 : 0));
}

QTEST_GUILESS_MAIN(TestTerminals)
#include "tst_terminals.moc"
