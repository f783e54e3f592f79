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
        QVERIFY(m_customer->exec("INSERT INTO vars (name, value) VALUES ('grp.red', '1'), ('grp.green', '2'), ('group', 'x'), "
                                 "('empty', NULL)"));
    }
    void deleteByNameAndPrefix_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("prefix");
        QTest::addColumn<bool>("deleted");
        QTest::addColumn<QString>("left");
        QTest::newRow("by name") << "group" << false << true << "empty=-,grp.green=2,grp.red=1";
        QTest::newRow("name is no prefix") << "grp" << false << false << "empty=-,group=x,grp.green=2,grp.red=1";
        QTest::newRow("by prefix") << "grp." << true << true << "empty=-,group=x";
    }
    void deleteByNameAndPrefix()
    {
        QFETCH(QString, name);
        QFETCH(bool, prefix);
        QFETCH(bool, deleted);
        QFETCH(QString, left);
        QCOMPARE(m_settings.variableDel(name, prefix), deleted);
        QCOMPARE(stored(), left);
    }
    void getByNamesAndPrefix()
    {
        QCOMPARE(m_settings.variableGet("grp.red", "default").toString(), "1");
        QCOMPARE(m_settings.variableGet("grp", "default").toString(), "default");
        // A value stored as NULL is a value, not a missing row.
        QVERIFY(m_settings.variableGet("empty", "default").isNull());
        const QMap<QString, QVariant> byNames = m_settings.variableGetMultiple(QStringList{"grp.red", "missing", "empty"});
        QCOMPARE(byNames.keys(), (QStringList{"empty", "grp.red"}));
        QVERIFY(byNames.value("empty").isNull());
        QCOMPARE(m_settings.variableGetMultiple(QString("gr")).keys(), (QStringList{"group", "grp.green", "grp.red"}));
        QCOMPARE(m_settings.variableGetMultiple(QString()).size(), 4);
        // No statement runs for an empty list, so even a handle without a server answers quietly.
        QVERIFY(ZmtDbSettings().variableGetMultiple(QStringList()).isEmpty());
    }
    void setGoesOnPastAFailure()
    {
        QVERIFY(m_settings.variableSet("grp.red", "9"));
        QVERIFY(m_settings.variableSet(QMap<QString, QVariant>()));
        // A name longer than the column is refused in strict mode; it sorts between the others.
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^variableSet ERROR: "));
        QVERIFY(!m_settings.variableSet({{"a.first", "A"}, {"m" + QString(300, 'x'), "lost"}, {"z.last", 42}}));
        QCOMPARE(stored(), "a.first=A,empty=-,group=x,grp.green=2,grp.red=9,z.last=42");
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
