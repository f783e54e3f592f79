// Injection attempts replayed against the private MariaDB: crafted customer tokens reach
// no statement of the InfoDB, and the values of terminals, people, admin tokens and setting
// names stay bound values, stored as sent.
#include "support/apifixture.h"
#include "support/terminalunit.h"

#include "database/dbmanager.h"
#include "database/zmtdbsettings.h"
#include "terminal/identifiers.h"

#include <QtTest>

class TestInjection : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void customerTokens_data();
    void customerTokens();
    void managerRefusesCraftedValues();
    void craftedValues_data();
    void craftedValues();
    void boundValues_data();
    void boundValues();

private:
    QScopedPointer<ApiFixture> m_fx;
};

void TestInjection::initTestCase()
{
    m_fx.reset(new ApiFixture("injection"));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    TestDatabase &db = m_fx->customer();
    // Person 1 is linked to both terminals, so a change from one would mark the other.
    QVERIFY(db.exec("INSERT INTO term (tid, vorixID, type, status, name) VALUES (1, 301, 'API', 1, 'Gate'), (2, 302, 'API', 1, 'Yard')"));
    QVERIFY(db.exec("INSERT INTO people (uid, pid, status, name, surname, admin, begin) VALUES (1, 1001, 1, 'Jana', 'Malá', 0, 1704063600)"));
    QVERIFY(db.exec("INSERT INTO people_term (uid, tid) SELECT 1, tid FROM term"));
    QVERIFY(db.exec("INSERT INTO admins (login, apiToken, status, perms) VALUES ('boss', 'tok-boss', 1, 2)"));
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
    // Answered as any unknown token: the customer's database, which "always true" would
    // have selected, is not reached.
    COMPARE_EXPECTED(maskTms(m_fx->call("GET", "/webapi/info", headers)), "spine/bad-database.http");
}

void TestInjection::managerRefusesCraftedValues()
{
    DBManager *manager = m_fx->manager();
    const QString always = "token' OR '1'='1";
    QCOMPARE(manager->loadTokenByName("x' OR '1'='1"), QString());
    QVERIFY(!manager->setRecalc(always));
    QVERIFY(!manager->setMaintenance(always));
    // In the statement, "OR '1'='1'" would have stamped every customer.
    QCOMPARE(m_fx->info().scalar("SELECT COUNT(*) FROM `schemas` WHERE recalc IS NOT NULL OR maintenance IS NOT NULL").toInt(), 0);
    // The same rule lets real names and tokens through.
    QCOMPARE(manager->loadTokenByName(m_fx->customer().name()), m_fx->token());
    QVERIFY(manager->setRecalc(m_fx->token()));
}

void TestInjection::craftedValues_data()
{
    QTest::addColumn<QString>("request");  // method and path below /webapi/, from terminal 1
    QTest::addColumn<QVariantMap>("body");
    QTest::addColumn<QString>("row");      // the value stored, and the column it tried to reach
    // Closing a quote to set a column the statement does not name (a terminal's pending marks,
    // a person's admin flag); a backslash; a leading colon, once a placeholder; percent signs
    // with digits, once markers of the statement's text. One field of each operation each.
    const QString t1 = encodeId(1, 301);
    const QString term = "SELECT CONCAT_WS('|', %1, syn) FROM term WHERE vorixID = ";
    const QString person = "SELECT CONCAT_WS('|', %1, admin) FROM people WHERE pid = ";
    const struct {
        const char *tag;
        QString request;
        QVariantMap body;
        QString row;
    } operations[] = {{"register new", "POST terminal", {{"vid", 5001}, {"name", "Door"}}, term + "5001"},
                      {"register known", "POST terminal", {{"vid", 301}, {"name", "Door"}}, term + "301"},
                      {"update term", "PUT term/" + t1, {}, term + "301"},
                      {"post new person", "POST person", {{"pid", 2001}, {"name", "Eva"}}, person + "2001"},
                      {"post known person", "POST person", {{"pid", 1001}, {"name", "Eva"}}, person + "1001"},
                      {"update person", "PUT person/" + t1 + "/" + encodeId(1, 1001), {}, person + "1001"}};
    for (const auto &operation : operations) {
        const bool isPerson = operation.row.contains("admin");
        const QStringList fields = isPerson ? QStringList{"title", "name", "surname", "card"} : QStringList{"name", "mac", "ip", "ver"};
        const QStringList payloads = {isPerson ? "x\", admin=\"1" : "x\", syn=\"7", "x\\", ":vid", isPerson ? "A%2B x%1y %3" : "50%1 %2"};
        for (int i = 0; i < 4; ++i) {
            QVariantMap body = operation.body;
            body.insert(fields.at(i), payloads.at(i));
            QTest::addRow("%s %d", operation.tag, i) << operation.request << body << operation.row.arg(fields.at(i));
        }
    }
}

void TestInjection::craftedValues()
{
    QFETCH(QString, request);
    QFETCH(QVariantMap, body);
    QFETCH(QString, row);
    const QString t1 = encodeId(1, 301);
    const QString method = request.section(' ', 0, 0);
    const QByteArray json = QJsonDocument::fromVariant(body).toJson();
    // PUT is not routed by the plug-in: through the units with a request context.
    const QByteArray raw = method == "PUT" ? TerminalUnit(*m_fx, t1).route(method, request.section(' ', 1), json)
                                           : m_fx->call(method, "/webapi/" + request.section(' ', 1), m_fx->terminalHeaders(t1), json);
    QVERIFY2(HttpReply::parse(raw).status < 300, raw.constData());
    // Every value is bound: stored as sent, and the columns it tried to reach stay as they were.
    const QString field = row.section(", ", 1, 1);
    QCOMPARE(m_fx->customer().scalar(row).toString(), body.value(field).toString() + "|0");
}

void TestInjection::boundValues_data()
{
    QTest::addColumn<QString>("value");
    QTest::newRow("quote") << "a'b";
    QTest::newRow("prefix and percent") << "tok%";
    // Wildcards of LIKE: eight underscores match "tok-boss", the other "webapi.enabled".
    QTest::newRow("underscores") << "________";
    QTest::newRow("underscore") << "webapi_enabled";
    QTest::newRow("always true") << "' OR '1'='1";
}

void TestInjection::boundValues()
{
    QFETCH(QString, value);
    TestDatabase &db = m_fx->customer();
    // As an admin token: no administrator, as any unknown token.
    COMPARE_EXPECTED(maskTms(m_fx->call("GET", "/webapi/report/daily/0", m_fx->adminHeaders(value))), "admin/no-admin.http");
    // As a setting's name or prefix: it matches only itself, and the licence rows stay.
    const QList<QVariantMap> before = db.rows("SELECT name, value FROM vars ORDER BY name");
    ZmtDbSettings settings(db.db());
    QVERIFY(!settings.variableDel(value, false));
    QVERIFY(!settings.variableDel(value, true));
    QCOMPARE(settings.variableGetMultiple(value), (QMap<QString, QVariant>()));
    QVERIFY(settings.variableSet(value, "again"));
    const QMap<QString, QVariant> mine{{value, "again"}};
    QCOMPARE(settings.variableGetMultiple(QStringList{value}), mine);
    QCOMPARE(settings.variableGetMultiple(value), mine);
    QVERIFY(settings.variableDel(value, true));
    QCOMPARE(db.rows("SELECT name, value FROM vars ORDER BY name"), before);
}

QTEST_GUILESS_MAIN(TestInjection)
#include "tst_injection.moc"
