// Injection attempts replayed against the private MariaDB: crafted customer tokens reach
// no statement of the InfoDB, values that would leave their double quotes fail as a failed
// statement and write nothing, and the admin token stays a bound value.
#include "support/apifixture.h"
#include "support/logcapture.h"

#include "database/dbmanager.h"
#include "database/zmtdbsettings.h"
#include "response/response.h"
#include "worker/webapiworker.h"

#include <QElapsedTimer>
#include <QtTest>

namespace {

// A worker whose update operations can be called directly: no route reaches them.
class DirectWorker : public WebApiWorker
{
public:
    using WebApiWorker::WebApiWorker;
    void reset() { m_response.reset(new Response(m_header)); }
};

QByteArray json(const QVariantMap &body)
{
    return QJsonDocument::fromVariant(body).toJson(QJsonDocument::Compact);
}

} // namespace

class TestInjection : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void customerTokens_data();
    void customerTokens();
    void managerRefusesCraftedValues();
    void inlinedValues_data();
    void inlinedValues();
    void acceptedValuesUnchanged();
    void adminTokenBound_data();
    void adminTokenBound();
    void settingsWritesBound_data();
    void settingsWritesBound();

private:
    // Every row of the tables a terminal can write, to prove that nothing changed.
    QList<QList<QVariantMap>> snapshot();

    QScopedPointer<ApiFixture> m_fx;
    QScopedPointer<DirectWorker> m_worker;
    QString m_tid;
    uint m_tidNumber = 0;
};

void TestInjection::initTestCase()
{
    m_fx.reset(new ApiFixture(QStringLiteral("injection")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(301, QStringLiteral("Gate"));
    QVERIFY(!m_fx->addTerminal(302, QStringLiteral("Yard")).isEmpty());
    TestDatabase &db = m_fx->customer();
    m_tidNumber = db.scalar(QStringLiteral("SELECT tid FROM term WHERE vorixID = 301")).toUInt();
    // Person 1 is linked to both terminals, so a change from one would mark the other.
    QVERIFY2(db.exec(QStringLiteral("INSERT INTO people (uid, pid, status, name, surname, admin, begin) VALUES "
                                    "(1, 1001, 1, 'Jana', 'Malá', 0, 1704063600)")),
             qPrintable(db.error()));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO people_term (uid, tid) SELECT 1, tid FROM term")));
    QVERIFY(db.exec(QStringLiteral("INSERT INTO admins (login, apiToken, status, perms) VALUES ('boss', 'tok-boss', 1, 2)")));

    m_worker.reset(new DirectWorker(QStringLiteral("2.4.1")));
    m_worker->setDbManager(m_fx->manager());
    // One request gives the worker its connection.
    const QByteArray raw = m_worker->buildResponse(QStringLiteral("GET"), QUrl(QStringLiteral("http://h/webapi/info")),
                                                   m_fx->terminalHeaders(), QByteArray());
    QCOMPARE(HttpReply::parse(raw).status, 200);
}

void TestInjection::cleanupTestCase()
{
    m_worker.reset();
}

QList<QList<QVariantMap>> TestInjection::snapshot()
{
    QList<QList<QVariantMap>> tables;
    for (const char *sql : {"SELECT * FROM term ORDER BY tid", "SELECT * FROM people ORDER BY uid",
                            "SELECT * FROM people_term ORDER BY uid, tid", "SELECT * FROM term_sync"})
        tables.append(m_fx->customer().rows(QString::fromLatin1(sql)));
    return tables;
}

void TestInjection::customerTokens_data()
{
    QTest::addColumn<QString>("token");
    // The Pragma line is only read when it holds the word "token", so every attempt does.
    QTest::newRow("timing") << "token' OR SLEEP(3) OR '";
    QTest::newRow("always true") << "token' OR '1'='1";
    QTest::newRow("comment") << "token' OR 1=1 #";
    QTest::newRow("quote") << "token'";
    QTest::newRow("backslash") << "token\\";
    QTest::newRow("semicolon") << "token;DROP";
    QTest::newRow("blank") << "token x";
    QTest::newRow("non-ASCII letter") << QStringLiteral("token-\u00e9");
}

void TestInjection::customerTokens()
{
    QFETCH(QString, token);
    QStringList headers = m_fx->terminalHeaders();
    headers.first() = QStringLiteral("Pragma: ") + token;
    LogCapture log;
    QElapsedTimer clock;
    clock.start();
    const QByteArray raw = m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/info"), headers);
    // With the token in the statement, SLEEP(3) runs once per row of `schemas`.
    QVERIFY2(clock.elapsed() < 3000, "the InfoDB ran the crafted token");
    // Answered as any unknown token: the customer's database, which "always true" would
    // have selected, is not reached.
    COMPARE_EXPECTED(maskTms(raw), "spine/bad-database.http");
    const QStringList warnings = log.lines(QtWarningMsg);
    QVERIFY2(warnings.contains(QStringLiteral(
                 "DBManager::loadScheme() refused a value with characters other than letters, digits and \"._-\"")),
             qPrintable(warnings.join(QLatin1Char('\n'))));
    for (const auto &entry : log.entries())
        QVERIFY2(!entry.second.contains(token), qPrintable(entry.second));
}

void TestInjection::managerRefusesCraftedValues()
{
    DBManager *manager = m_fx->manager();
    const QString always = QStringLiteral("token' OR '1'='1");
    LogCapture log;
    QCOMPARE(manager->loadTokenByName(QStringLiteral("x' OR '1'='1")), QString());
    QVERIFY(!manager->setRecalc(always));
    QVERIFY(!manager->setMaintenance(always));
    QVERIFY(!manager->setMaintenance(always));  // no throttle entry made the first time
    // In the statement, "OR '1'='1'" would have stamped every customer.
    QCOMPARE(m_fx->info()
                 .scalar(QStringLiteral("SELECT COUNT(*) FROM `schemas` WHERE recalc IS NOT NULL OR maintenance IS NOT NULL"))
                 .toInt(),
             0);
    QCOMPARE(log.lines(QtWarningMsg).size(), 4);
    QCOMPARE(log.lines(QtCriticalMsg), QStringList());
    // The same rule lets real names and tokens through.
    QCOMPARE(manager->loadTokenByName(m_fx->customer().name()), m_fx->token());
    QVERIFY(manager->setRecalc(m_fx->token()));
}

void TestInjection::inlinedValues_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");

    const QStringList termFields = {QStringLiteral("name"), QStringLiteral("mac"), QStringLiteral("ip"),
                                    QStringLiteral("ver")};
    const QMap<QString, QStringList> fields = {
        {QStringLiteral("register new"), termFields},
        {QStringLiteral("register known"), termFields},
        {QStringLiteral("update term"), termFields},
        {QStringLiteral("post new person"),
         {QStringLiteral("title"), QStringLiteral("name"), QStringLiteral("surname"), QStringLiteral("title2"),
          QStringLiteral("card"), QStringLiteral("gid"), QStringLiteral("end")}},
        {QStringLiteral("post known person"),
         {QStringLiteral("title"), QStringLiteral("name"), QStringLiteral("surname"), QStringLiteral("title2"),
          QStringLiteral("card"), QStringLiteral("gid"), QStringLiteral("end")}},
        {QStringLiteral("update person"),
         {QStringLiteral("title"), QStringLiteral("name"), QStringLiteral("surname"), QStringLiteral("admin"),
          QStringLiteral("card")}},
    };
    // Closing the quote to set a column the operation does not name (a terminal's pending
    // marks, a person's admin flag); a backslash that eats the closing quote; a leading
    // colon that would act as a placeholder (only the exact ":name" of registration is one).
    for (auto op = fields.cbegin(); op != fields.cend(); ++op) {
        const bool term = op.key().contains(QLatin1String("term")) || op.key().startsWith(QLatin1String("register"));
        const QList<QPair<const char *, QString>> payloads = {
            {"quote", term ? QStringLiteral("x\", syn=\"7") : QStringLiteral("x\", admin=\"1")},
            {"backslash", QStringLiteral("x\\")},
            {"colon", QStringLiteral(":name")},
            {"colon other", QStringLiteral(":vid")},
        };
        for (const QString &field : op.value()) {
            for (const auto &payload : payloads) {
                // The one value that stays a placeholder, bound to the name itself.
                if (op.key().startsWith(QLatin1String("register")) && field == QLatin1String("name")
                    && payload.second == QLatin1String(":name"))
                    continue;
                QTest::addRow("%s %s %s", qPrintable(op.key()), qPrintable(field), payload.first)
                    << op.key() << field << payload.second;
            }
        }
    }
}

void TestInjection::inlinedValues()
{
    QFETCH(QString, operation);
    QFETCH(QString, field);
    QFETCH(QString, value);
    const auto before = snapshot();
    LogCapture log;
    m_worker->reset();
    const QStringList headers = m_fx->terminalHeaders(m_tid);
    const auto post = [&](const QString &word, QVariantMap body) {
        body.insert(field, value);
        m_worker->buildResponse(QStringLiteral("POST"), QUrl(QStringLiteral("http://h/webapi/") + word), headers,
                                json(body));
    };
    QString logLine;
    if (operation.startsWith(QLatin1String("register"))) {
        post(QStringLiteral("terminal"), {{QStringLiteral("vid"), operation.endsWith(QLatin1String("new")) ? 5001 : 301},
                                          {QStringLiteral("name"), QStringLiteral("Door")}});
        logLine = QStringLiteral("WebApiWorker::dbInsertTerm() SQl ERROR:");
    } else if (operation.startsWith(QLatin1String("post"))) {
        post(QStringLiteral("person"), {{QStringLiteral("pid"), operation.contains(QLatin1String("new")) ? 2001 : 1001},
                                        {QStringLiteral("name"), QStringLiteral("Eva")}});
        logLine = QStringLiteral("WebApiWorker::dbInsertPerson() SQl ERROR:");
    } else if (operation == QLatin1String("update term")) {
        QVERIFY(!m_worker->dbUpdateTerm(m_tidNumber, {{field, value}}));
        logLine = QStringLiteral("WebApiWorker::dbUpdateTerm() SQl ERROR:");
    } else {
        QVERIFY(!m_worker->dbUpdatePerson(m_tidNumber, 1, {{field, value}}));
        logLine = QStringLiteral("WebApiWorker::dbUpdatePerson() SQl ERROR:");
    }
    QCOMPARE(m_worker->response()->errorCode(), int(Response::RE_SQLError));
    QCOMPARE(m_worker->response()->status(), quint16(500));
    QCOMPARE(log.linesStartingWith(QtCriticalMsg, logLine).size(), 1);
    QCOMPARE(snapshot(), before);
}

void TestInjection::acceptedValuesUnchanged()
{
    TestDatabase &db = m_fx->customer();
    // Registration keeps its one placeholder: the name ":name" is bound, not inlined.
    HttpReply reply = m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/terminal"), m_fx->terminalHeaders(),
                                    R"({"vid": 5002, "name": ":name", "mac": "aa:bb", "ver": "1.0 'beta'"})");
    QCOMPARE(reply.status, 201);
    QCOMPARE(db.rows(QStringLiteral("SELECT name, mac, ver FROM term WHERE vorixID = 5002")),
             (QList<QVariantMap>{{{QStringLiteral("name"), QStringLiteral(":name")},
                                  {QStringLiteral("mac"), QStringLiteral("aa:bb")},
                                  {QStringLiteral("ver"), QStringLiteral("1.0 'beta'")}}}));
    // Single quotes, percent signs, colons inside and SQL words are plain text in double quotes.
    const QString surname = QStringLiteral("O'Brien 100% -- ; OR 1=1 a:b");
    reply = m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/person"), m_fx->terminalHeaders(m_tid),
                          json({{QStringLiteral("pid"), 2002}, {QStringLiteral("surname"), surname}}));
    QCOMPARE(reply.status, 201);
    QCOMPARE(db.scalar(QStringLiteral("SELECT surname FROM people WHERE pid = 2002")).toString(), surname);
}

void TestInjection::adminTokenBound_data()
{
    QTest::addColumn<QString>("apiToken");
    QTest::newRow("quote") << "'";
    QTest::newRow("percent") << "%";
    QTest::newRow("underscore") << "________";
    QTest::newRow("always true") << "' OR '1'='1";
    QTest::newRow("prefix and percent") << "tok%";
}

void TestInjection::adminTokenBound()
{
    QFETCH(QString, apiToken);
    LogCapture log;
    // As any unknown token: no administrator, no error text from the database.
    COMPARE_EXPECTED(maskTms(m_fx->call(QStringLiteral("GET"), QStringLiteral("/webapi/report/daily/0"),
                                        m_fx->adminHeaders(apiToken))),
                     "admin/no-admin.http");
    QCOMPARE(log.lines(QtWarningMsg), QStringList());
}

void TestInjection::settingsWritesBound_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("quote") << "a'b";
    QTest::newRow("percent") << "webapi.%";
    QTest::newRow("underscore") << "webapi_enabled";
    QTest::newRow("always true") << "' OR '1'='1";
}

void TestInjection::settingsWritesBound()
{
    QFETCH(QString, name);
    TestDatabase &db = m_fx->customer();
    const QList<QVariantMap> before = db.rows(QStringLiteral("SELECT name, value FROM vars ORDER BY name"));
    ZmtDbSettings settings(db.db());
    LogCapture log;
    // Name and value both bound: stored as they stand, one row, the licence rows untouched.
    QVERIFY(settings.variableSet(name, name));
    QVERIFY(settings.variableSet(QMap<QString, QVariant>{{name, QStringLiteral("again")}}));
    QCOMPARE(log.lines(QtCriticalMsg), QStringList());
    QList<QVariantMap> after = db.rows(QStringLiteral("SELECT name, value FROM vars ORDER BY name"));
    QCOMPARE(after.size(), before.size() + 1);
    QVERIFY(after.removeOne(QVariantMap{{QStringLiteral("name"), name}, {QStringLiteral("value"), QStringLiteral("again")}}));
    QCOMPARE(after, before);
    QVERIFY(db.exec(QStringLiteral("DELETE FROM vars WHERE value = 'again'")));
}

QTEST_GUILESS_MAIN(TestInjection)
#include "tst_injection.moc"
