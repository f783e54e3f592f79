// The hosts' accessor of the vars table, on a customer database of the private server. (That
// names and prefixes are bound, wildcards and quotes included, tst_injection shows.)
#include "support/testserver.h"

#include "database/zmtdbsettings.h"

#include <QRegularExpression>
#include <QtTest>

class TestZmtDbSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_customer.reset(new TestDatabase("settings", WEBAPI_SOURCE_DIR "/database/schema/customer.sql"));
        QVERIFY2(m_customer->isReady(), qPrintable(m_customer->error()));
        m_settings.setDb(m_customer->db());
    }
    void init()
    {
        QVERIFY(m_customer->exec("DELETE FROM vars"));
        QVERIFY(m_customer->exec("INSERT INTO vars VALUES ('grp.red', '1'), ('grp.green', '2'), ('group', 'x'), ('empty', NULL)"));
    }
    void readAndDelete()
    {
        QCOMPARE(m_settings.variableGet("grp", "default").toString(), "default");
        // A value stored as NULL is a value, not a missing row.
        QVERIFY(m_settings.variableGet("empty", "default").isNull());
        const QMap<QString, QVariant> byNames = m_settings.variableGetMultiple(QStringList{"grp.red", "missing", "empty"});
        QVERIFY(byNames.keys() == QStringList({"empty", "grp.red"}) && byNames["empty"].isNull() && byNames["grp.red"] == "1");
        QCOMPARE(m_settings.variableGetMultiple(QString("gr")).keys(), (QStringList{"group", "grp.green", "grp.red"}));
        QVERIFY(!m_settings.variableDel("grp", false));
        QVERIFY(m_settings.variableDel("grp.", true));
        QCOMPARE(stored(), "empty=-,group=x");
    }
    void setGoesOnPastAFailure()
    {
        // A name longer than the column is refused in strict mode; it sorts between the others.
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^variableSet ERROR: "));
        QVERIFY(!m_settings.variableSet({{"a.first", "A"}, {"m" + QString(300, 'x'), "lost"}, {"z.last", 42}}));
        QCOMPARE(stored(), "a.first=A,empty=-,group=x,grp.green=2,grp.red=1,z.last=42");
    }

private:
    QString stored()
    {
        return m_customer->scalar("SELECT GROUP_CONCAT(name, '=', IFNULL(value, '-') ORDER BY BINARY name) FROM vars").toString();
    }

    QScopedPointer<TestDatabase> m_customer;
    ZmtDbSettings m_settings;
};

QTEST_GUILESS_MAIN(TestZmtDbSettings)
#include "tst_zmtdbsettings.moc"
