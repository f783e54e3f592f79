// Injection attempts replayed against the private MariaDB: crafted customer tokens reach
// no statement of the InfoDB, and the values of terminals, people, admin tokens and setting
// names stay bound values, stored as sent.
#include "support/apifixture.h"
#include "support/logcapture.h"
#include "support/terminalunit.h"

#include "database/dbmanager.h"
#include "database/zmtdbsettings.h"
#include "terminal/people.h"
#include "terminal/terminals.h"

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
    QString m_tid;
};

void TestInjection::initTestCase()
{
    m_fx.reset(new ApiFixture("injection"));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(301, "Gate");
    QVERIFY(!m_fx->addTerminal(302, "Yard").isEmpty());
    TestDatabase &db = m_fx->customer();
    // Person 1 is linked to both terminals, so a change from one would mark the other.
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
    LogCapture log;
    // Answered as any unknown token: the customer's database, which "always true" would
    // have selected, is not reached.
    COMPARE_EXPECTED(maskTms(m_fx->call("GET", "/webapi/info", headers)), "spine/bad-database.http");
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
    // In the statement, "OR '1'='1'" would have stamped every customer.
    QCOMPARE(m_fx->info().scalar("SELECT COUNT(*) FROM `schemas` WHERE recalc IS NOT NULL OR maintenance IS NOT NULL").toInt(), 0);
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
    // Closing a quote to set a column the operation does not name (a terminal's pending marks,
    // a person's admin flag); a backslash; a leading colon, once a placeholder; percent signs
    // with digits, once markers of the statement's text. One field of each operation each.
    const QStringList terminal = {"name", "mac", "ip", "ver"};
    const QStringList person = {"title", "name", "surname", "card"};
    for (const char *operation : {"register new", "register known", "update term", "post new person", "post known person", "update person"}) {
        const bool isPerson = QByteArray(operation).contains("person");
        const QStringList payloads = {isPerson ? "x\", admin=\"1" : "x\", syn=\"7", "x\\", ":vid", isPerson ? "A%2B x%1y %3" : "50%1 %2"};
        for (int i = 0; i < 4; ++i)
            QTest::addRow("%s %d", operation, i) << operation << (isPerson ? person : terminal).at(i) << payloads.at(i);
    }
}

void TestInjection::craftedValues()
{
    QFETCH(QString, operation);
    QFETCH(QString, field);
    QFETCH(QString, value);
    const auto post = [&](const QString &word, QVariantMap body) {
        body.insert(field, value);
        return HttpReply::parse(m_fx->call("POST", "/webapi/" + word, m_fx->terminalHeaders(m_tid),
                                           QJsonDocument::fromVariant(body).toJson())).status;
    };
    // Every value is bound: stored as sent, and the columns it tried to reach stay as they were.
    TerminalUnit unit(*m_fx);
    const uint tid = m_fx->customer().scalar("SELECT tid FROM term WHERE vorixID = 301").toUInt();
    QString row;
    if (operation.startsWith("register")) {
        const int vid = operation.endsWith("new") ? 5001 : 301;
        QVERIFY(post("terminal", {{"vid", vid}, {"name", "Door"}}) < 300);
        row = QString("SELECT %1, syn FROM term WHERE vorixID = %2").arg(field).arg(vid);
    } else if (operation.startsWith("post")) {
        const int pid = operation.contains("new") ? 2001 : 1001;
        QVERIFY(post("person", {{"pid", pid}, {"name", "Eva"}}) < 300);
        row = QString("SELECT %1, admin FROM people WHERE pid = %2").arg(field).arg(pid);
    } else if (operation == "update term") {
        dbUpdateTerm(unit.ctx, tid, {{field, value}});
        row = QString("SELECT %1, syn FROM term WHERE tid = %2").arg(field).arg(tid);
    } else {
        dbUpdatePerson(unit.ctx, tid, 1, {{field, value}});
        row = QString("SELECT %1, admin FROM people WHERE uid = 1").arg(field);
    }
    QCOMPARE(unit.response.errorCode(), 0);
    const QList<QVariantMap> rows = m_fx->customer().rows(row);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().value(field).toString(), value);
    QCOMPARE(rows.first().value(operation.contains("person") ? "admin" : "syn").toInt(), 0);
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
    LogCapture log;
    // As an admin token: no administrator, as any unknown token, and no error text.
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
    QCOMPARE(log.lines(QtWarningMsg) + log.lines(QtCriticalMsg), QStringList());
}

QTEST_GUILESS_MAIN(TestInjection)
#include "tst_injection.moc"
