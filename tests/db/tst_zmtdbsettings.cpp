// The hosts' accessor of the vars table, on a customer database of the private server.
#include "support/testserver.h"

#include "database/zmtdbsettings.h"

#include <QRegularExpression>
#include <QtTest>

class TestZmtDbSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void setReplacesAndAdds();
    void setManyGoesOnPastAFailure();
    void deleteByNameAndPrefix_data();
    void deleteByNameAndPrefix();
    void getMultiple();

private:
    QMap<QString, QVariant> stored();

    QScopedPointer<TestDatabase> m_customer;
    ZmtDbSettings m_settings;
};

void TestZmtDbSettings::initTestCase()
{
    m_customer.reset(new TestDatabase(QStringLiteral("settings"),
                                      QStringLiteral(WEBAPI_SOURCE_DIR "/database/schema/customer.sql")));
    QVERIFY2(m_customer->isReady(), qPrintable(m_customer->error()));
    m_settings.setDb(m_customer->db());
}

void TestZmtDbSettings::init()
{
    QVERIFY(m_customer->exec(QStringLiteral("DELETE FROM vars")));
    QVERIFY(m_customer->exec(QStringLiteral("INSERT INTO vars (name, value) VALUES ('grp.red', '1'), ('grp.green', '2'), "
                                            "('group', 'x'), ('empty', NULL), ('colorGroups', '7:#ff0000')")));
}

QMap<QString, QVariant> TestZmtDbSettings::stored()
{
    QMap<QString, QVariant> values;
    for (const QVariantMap &row : m_customer->rows(QStringLiteral("SELECT name, value FROM vars")))
        values.insert(row.value(QStringLiteral("name")).toString(), row.value(QStringLiteral("value")));
    return values;
}

void TestZmtDbSettings::setReplacesAndAdds()
{
    // A value stored as NULL is a value, not a missing row.
    const QVariant empty = m_settings.variableGet(QStringLiteral("empty"), QStringLiteral("default"));
    QVERIFY(empty.isNull());

    QVERIFY(m_settings.variableSet(QStringLiteral("grp.red"), QStringLiteral("9")));
    QVERIFY(m_settings.variableSet(QStringLiteral("new"), 42));
    QVERIFY(m_settings.variableSet(QMap<QString, QVariant>()));
    const QMap<QString, QVariant> values = stored();
    QCOMPARE(values.size(), 6);
    QCOMPARE(values.value(QStringLiteral("grp.red")).toString(), QStringLiteral("9"));
    QCOMPARE(values.value(QStringLiteral("new")).toString(), QStringLiteral("42"));
}

void TestZmtDbSettings::setManyGoesOnPastAFailure()
{
    // A name longer than the column is refused in strict mode; it sorts between the others.
    const QString tooLong = QStringLiteral("m") + QString(300, QLatin1Char('x'));
    QMap<QString, QVariant> values;
    values.insert(QStringLiteral("a.first"), QStringLiteral("A"));
    values.insert(tooLong, QStringLiteral("lost"));
    values.insert(QStringLiteral("z.last"), QStringLiteral("Z"));
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("^variableSet ERROR: \".+\"$")));
    QVERIFY(!m_settings.variableSet(values));
    const QMap<QString, QVariant> after = stored();
    QCOMPARE(after.value(QStringLiteral("a.first")).toString(), QStringLiteral("A"));
    QCOMPARE(after.value(QStringLiteral("z.last")).toString(), QStringLiteral("Z"));
    QCOMPARE(after.size(), 7);
}

void TestZmtDbSettings::deleteByNameAndPrefix_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("prefix");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("left");

    QTest::newRow("by name") << "group" << false << true
                             << QStringList{"colorGroups", "empty", "grp.green", "grp.red"};
    QTest::newRow("name is no prefix") << "grp" << false << false
                                       << QStringList{"colorGroups", "empty", "group", "grp.green", "grp.red"};
    QTest::newRow("by prefix") << "grp." << true << true << QStringList{"colorGroups", "empty", "group"};
    QTest::newRow("prefix without match") << "zzz" << true << false
                                          << QStringList{"colorGroups", "empty", "group", "grp.green", "grp.red"};
}

void TestZmtDbSettings::deleteByNameAndPrefix()
{
    QFETCH(QString, name);
    QFETCH(bool, prefix);
    QFETCH(bool, result);
    QFETCH(QStringList, left);
    QCOMPARE(m_settings.variableDel(name, prefix), result);
    QCOMPARE(stored().keys(), left);
}

void TestZmtDbSettings::getMultiple()
{
    QCOMPARE(m_settings.variableGet(QStringLiteral("grp.red"), QStringLiteral("default")).toString(), QStringLiteral("1"));
    QCOMPARE(m_settings.variableGet(QStringLiteral("grp"), QStringLiteral("default")).toString(), QStringLiteral("default"));
    QMap<QString, QVariant> byNames = m_settings.variableGetMultiple(QStringList{"grp.red", "missing", "empty"});
    QCOMPARE(byNames.keys(), (QStringList{"empty", "grp.red"}));
    QVERIFY(byNames.value(QStringLiteral("empty")).isNull());
    QCOMPARE(byNames.value(QStringLiteral("grp.red")).toString(), QStringLiteral("1"));

    QCOMPARE(m_settings.variableGetMultiple(QStringLiteral("gr")).keys(), (QStringList{"group", "grp.green", "grp.red"}));
    QCOMPARE(m_settings.variableGetMultiple(QString()).size(), 5);
    QVERIFY(m_settings.variableGetMultiple(QStringList()).isEmpty());
    // No statement runs for an empty list, so even a handle without a server answers quietly.
    QVERIFY(ZmtDbSettings().variableGetMultiple(QStringList()).isEmpty());
}


QTEST_GUILESS_MAIN(TestZmtDbSettings)
#include "tst_zmtdbsettings.moc"
