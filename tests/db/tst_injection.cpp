// Injection attempts replayed against the private MariaDB: crafted customer tokens reach
// no statement of the InfoDB, and the values of terminals, people, admin tokens and setting
// names stay bound values, stored as sent.
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
    void cleanupTestCase() { m_worker.reset(); }
    void customerTokens_data();
    void customerTokens();
    void managerRefusesCraftedValues();
    void craftedValues_data();
    void craftedValues();
    void boundValues_data();
    void boundValues();

private:
    QScopedPointer<ApiFixture> m_fx;
    QScopedPointer<DirectWorker> m_worker;
    QString m_tid;
    uint m_tidNumber = 0;
};

void TestInjection::initTestCase()
{
    m_fx.reset(new ApiFixture("injection"));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(301, "Gate");
    QVERIFY(!m_fx->addTerminal(302, "Yard").isEmpty());
    TestDatabase &db = m_fx->customer();
    m_tidNumber = db.scalar("SELECT tid FROM term WHERE vorixID = 301").toUInt();
    // Person 1 is linked to both terminals, so a change from one would mark the other.
    QVERIFY2(db.exec("INSERT INTO people (uid, pid, status, name, surname, admin, begin) VALUES "
                     "(1, 1001, 1, 'Jana', 'Malá', 0, 1704063600)"),
             qPrintable(db.error()));
    QVERIFY(db.exec("INSERT INTO people_term (uid, tid) SELECT 1, tid FROM term"));
    QVERIFY(db.exec("INSERT INTO admins (login, apiToken, status, perms) VALUES ('boss', 'tok-boss', 1, 2)"));
    m_worker.reset(new DirectWorker("2.4.1"));
    m_worker->setDbManager(m_fx->manager());
    // One request gives the worker its connection.
    QCOMPARE(HttpReply::parse(m_worker->buildResponse("GET", QUrl("http://h/webapi/info"), m_fx->terminalHeaders(), {})).status,
             200);
}

void TestInjection::customerTokens_data()
{
    QTest::addColumn<QString>("token");
    // The Pragma line is only read when it holds the word "token", so every attempt does.
    for (const QByteArray &token : testData("injection/tokens.txt").trimmed().split('\n'))
        QTest::newRow(token.constData()) << QString::fromUtf8(token);
}

void TestInjection::customerTokens()
{
    QFETCH(QString, token);
    QStringList headers = m_fx->terminalHeaders();
    headers.first() = "Pragma: " + token;
    LogCapture log;
    QElapsedTimer clock;
    clock.start();
    const QByteArray raw = m_fx->call("GET", "/webapi/info", headers);
    // With the token in the statement, SLEEP(3) runs once per row of `schemas`.
    QVERIFY2(clock.elapsed() < 3000, "the InfoDB ran the crafted token");
    // Answered as any unknown token: the customer's database, which "always true" would
    // have selected, is not reached.
    COMPARE_EXPECTED(maskTms(raw), "spine/bad-database.http");
    QVERIFY(log.lines(QtWarningMsg)
                .contains("DBManager::loadScheme() refused a value with characters other than letters, digits and \"._-\""));
    for (const auto &entry : log.entries())
        QVERIFY2(!entry.second.contains(token), qPrintable(entry.second));
}

void TestInjection::managerRefusesCraftedValues()
{
    DBManager *manager = m_fx->manager();
    const QString always = "token' OR '1'='1";
    LogCapture log;
    QCOMPARE(manager->loadTokenByName("x' OR '1'='1"), QString());
    QVERIFY(!manager->setRecalc(always));
    QVERIFY(!manager->setMaintenance(always));
    QVERIFY(!manager->setMaintenance(always));  // no throttle entry made the first time
    // In the statement, "OR '1'='1'" would have stamped every customer.
    QCOMPARE(m_fx->info().scalar("SELECT COUNT(*) FROM `schemas` WHERE recalc IS NOT NULL OR maintenance IS NOT NULL").toInt(), 0);
    QCOMPARE(log.lines(QtWarningMsg).size(), 4);
    QCOMPARE(log.lines(QtCriticalMsg), QStringList());
    // The same rule lets real names and tokens through.
    QCOMPARE(manager->loadTokenByName(m_fx->customer().name()), m_fx->token());
    QVERIFY(manager->setRecalc(m_fx->token()));
}

void TestInjection::craftedValues_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    const QString termFields = "name mac ip ver";
    const QString personFields = "title name surname title2 card";
    const QList<QPair<QString, QString>> fields = {{"register new", termFields},       {"register known", termFields},
                                                   {"update term", termFields},        {"post new person", personFields},
                                                   {"post known person", personFields}, {"update person", "title name surname card"}};
    // Closing a quote to set a column the operation does not name (a terminal's pending marks,
    // a person's admin flag); a backslash; a leading colon, once a placeholder; percent signs
    // with digits, once markers of the statement's text.
    for (const auto &op : fields) {
        const bool person = op.first.contains("person");
        const QList<QPair<const char *, QString>> payloads = {{"quote", person ? "x\", admin=\"1" : "x\", syn=\"7"},
                                                              {"backslash", "x\\"},
                                                              {"colon", ":vid"},
                                                              {"percent", person ? "A%2B x%1y %3" : "50%1 %2"}};
        for (const QString &field : op.second.split(' ')) {
            for (const auto &payload : payloads)
                QTest::addRow("%s %s %s", qPrintable(op.first), qPrintable(field), payload.first)
                    << op.first << field << payload.second;
        }
    }
}

void TestInjection::craftedValues()
{
    QFETCH(QString, operation);
    QFETCH(QString, field);
    QFETCH(QString, value);
    m_worker->reset();
    const auto post = [&](const QString &word, QVariantMap body) {
        body.insert(field, value);
        m_worker->buildResponse("POST", QUrl("http://h/webapi/" + word), m_fx->terminalHeaders(m_tid), json(body));
    };
    // Every value is bound: stored as sent, and the columns it tried to reach stay as they were.
    QString row;
    if (operation.startsWith("register")) {
        const int vid = operation.endsWith("new") ? 5001 : 301;
        post("terminal", {{"vid", vid}, {"name", "Door"}});
        row = QString("SELECT %1, syn FROM term WHERE vorixID = %2").arg(field).arg(vid);
    } else if (operation.startsWith("post")) {
        const int pid = operation.contains("new") ? 2001 : 1001;
        post("person", {{"pid", pid}, {"name", "Eva"}});
        row = QString("SELECT %1, admin FROM people WHERE pid = %2").arg(field).arg(pid);
    } else if (operation == "update term") {
        m_worker->dbUpdateTerm(m_tidNumber, {{field, value}});
        row = QString("SELECT %1, syn FROM term WHERE tid = %2").arg(field).arg(m_tidNumber);
    } else {
        m_worker->dbUpdatePerson(m_tidNumber, 1, {{field, value}});
        row = QString("SELECT %1, admin FROM people WHERE uid = 1").arg(field);
    }
    QCOMPARE(m_worker->response()->errorCode(), 0);
    const QList<QVariantMap> rows = m_fx->customer().rows(row);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().value(field).toString(), value);
    QCOMPARE(rows.first().value(operation.contains("person") ? "admin" : "syn").toInt(), 0);
}

void TestInjection::boundValues_data()
{
    QTest::addColumn<QString>("value");
    QTest::newRow("quote") << "a'b";
    QTest::newRow("percent") << "%";
    QTest::newRow("prefix and percent") << "tok%";
    // Wildcards of LIKE: eight underscores match "tok-boss", the other "webapi.enabled".
    QTest::newRow("underscores") << "________";
    QTest::newRow("underscore") << "webapi_enabled";
    QTest::newRow("always true") << "' OR '1'='1";
    QTest::newRow("escape character") << "!";
}

void TestInjection::boundValues()
{
    QFETCH(QString, value);
    TestDatabase &db = m_fx->customer();
    LogCapture log;
    // As an admin token: no administrator, as any unknown token, and no error text.
    COMPARE_EXPECTED(maskTms(m_fx->call("GET", "/webapi/report/daily/0", m_fx->adminHeaders(value))), "admin/no-admin.http");
    QCOMPARE(log.lines(QtWarningMsg), QStringList());
    // As a setting's name or prefix: it matches only itself, and the licence rows stay.
    const QList<QVariantMap> before = db.rows("SELECT name, value FROM vars ORDER BY name");
    ZmtDbSettings settings(db.db());
    QVERIFY(!settings.variableDel(value, false));
    QVERIFY(!settings.variableDel(value, true));
    QCOMPARE(settings.variableGetMultiple(value), (QMap<QString, QVariant>()));
    QVERIFY(settings.variableSet(value, value));
    QVERIFY(settings.variableSet(QMap<QString, QVariant>{{value, "again"}}));
    const QMap<QString, QVariant> mine{{value, "again"}};
    QCOMPARE(settings.variableGet(value, QVariant()), QVariant("again"));
    QCOMPARE(settings.variableGetMultiple(QStringList{value}), mine);
    QCOMPARE(settings.variableGetMultiple(value), mine);
    QList<QVariantMap> after = db.rows("SELECT name, value FROM vars ORDER BY name");
    QVERIFY(after.removeOne(QVariantMap{{"name", value}, {"value", "again"}}));
    QCOMPARE(after, before);
    QVERIFY(settings.variableDel(value, true));
    QCOMPARE(db.rows("SELECT name, value FROM vars ORDER BY name"), before);
    QCOMPARE(log.lines(QtCriticalMsg), QStringList());
}

QTEST_GUILESS_MAIN(TestInjection)
#include "tst_injection.moc"
